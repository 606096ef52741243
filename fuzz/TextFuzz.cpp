// The text parsers: IP addresses, VLAN lists, the text forms of the
// library's values (log messages, exceptions, bounded strings, enumerations),
// REST paths from a template and its arguments, and the word splitters. The
// first byte picks the parser.
#include <cstdint>
#include <string>
#include <vector>

#include "agent/VlanSet.h"
#include "messaging/TextUtils.h"
#include "messaging/ValueTypes.h"
#include "messaging/WebServiceTypes.h"
#include "standins/IpAddr.h"

using namespace Harbec;

namespace {

// A parse failure of a text form is an answer, not a fault.
template <class T>
void strep(const Kel::String8& text) {
  try {
    Kel::strepToValue<T>(text);
  } catch (const Kel::RangeException&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 8) {
    case 0: {
      Brindle::IpAddr address;
      address.stringValueIs(text);
      address.stringValue();
      break;
    }
    case 1: {
      HarbecAgent::VlanSet vlans;
      vlans.add(text);
      vlans.text();
      break;
    }
    case 2: strep<LogMsg>(text); break;
    case 3:
      strep<SoapException>(text);
      strep<RestException>(text);
      break;
    case 4: strep<BoundedString255>(text); break;
    case 5:
      try {
        SoapRequestTypeInstance(Kel::String8(text));
      } catch (const Kel::RangeException&) {
      }
      break;
    case 6: {
      std::vector<std::string> words;
      split(text, " /,", words);
      stripExtraWhiteSpace(text);
      break;
    }
    case 7: {
      // A template and arguments, at NUL bytes: the composition asserts
      // on a template whose tokens and arguments do not match, so only
      // matching ones are made.
      RestRequest::Ptr r = restRequestFactory("r", vsVxlanSegment, httpGET);
      r->endPointIs(text.substr(0, text.find('\0')));
      r->optionalArgIs("pagesize", text.size() > 3 ? text.substr(text.size() - 3) : "1");
      if (text.find('\0') == std::string::npos) r->toEndPoint();
      break;
    }
  }
  return 0;
}
