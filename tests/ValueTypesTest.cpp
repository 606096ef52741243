// Text forms (streps) of the enumerations and value records, and their parsers.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "messaging/Enums.h"
#include "messaging/ValueTypes.h"

using namespace Harbec;
using Kel::RangeException;
using Kel::String8;

namespace {

// The message of the RangeException raised by `f`, or a marker if none is.
template <class F>
std::string rangeMessage(F f) {
  try {
    f();
  } catch (const RangeException& e) {
    return e.message().str();
  }
  return "<no RangeException>";
}

template <class T>
std::string parseFailure(const String8& text) {
  return rangeMessage([&] { Kel::strepToValue<T>(text); });
}

template <class T>
String8 textOf(const T& v) {
  std::ostringstream os;
  os << v;
  return String8(os.str());
}

// The message a bad field value yields once renamed for the attribute.
template <class T>
std::string fieldFailure(const char* badValue, const char* field) {
  const String8 text(badValue);
  Kel::StrIter i = text.begin();
  try {
    using Kel::sequenceToValue;
    T v;
    sequenceToValue(i, text.end(), &v);
  } catch (const RangeException& e) {
    return rangeMessage([&] { Kel::rethrowFromDeserializeAttr(e, field); });
  }
  return "<value parsed>";
}

const char* const kLogMsgHead = "Value('Harbec::LogMsg', ** {";

}  // namespace

// ---------------------------------------------------------------- enumerations

TEST(EnumText, NamesNumbersAndTheirFailures) {
  // Name for number and back, on the enumeration with the most values.
  const char* const names[] = {"unknownSoapRequestType", "counterUpdateRequestType", "connectRequestType",
                               "blockPortRequestType", "checkForUpdatesRequestType", "updateHostNwInfoRequestType",
                               "fetchDvPortRequestType", "refreshDvPortRequestType",
                               "connectionStatusRequestType", "logMsgRequestType"};
  for (unsigned n = 0; n < std::size(names); ++n) {
    EXPECT_EQ(stringValue(SoapRequestType(n)), names[n]);
    EXPECT_EQ(SoapRequestTypeInstance(String8(names[n])), SoapRequestType(n));
  }
  EXPECT_EQ(textOf(FTStatus(2)), "ftStandby");
  EXPECT_EQ(valueToStrep(httpGET), "'httpGET'");
  // Unknown numbers print with the type's name, and read back as nothing.
  EXPECT_EQ(valueToStrep(SoapRequestType(10)), "'SoapRequestType(10)'");
  EXPECT_EQ(stringValue(SoapException::Id(7)), "SoapException::Id(7)");
  EXPECT_EQ(rangeMessage([] { SoapRequestTypeInstance(10u); }), "SoapRequestType");
  EXPECT_EQ(rangeMessage([] { SoapExceptionIdInstance(7u); }), "Id");
  EXPECT_EQ(rangeMessage([] { SoapRequestTypeInstance(String8("SoapRequestType(10)")); }), "SoapRequestType");
  // Names compare exactly.
  for (const char* wrong : {"httpget", "httpGET "})
    EXPECT_EQ(rangeMessage([&] { RestRequestTypeInstance(String8(wrong)); }), "RestRequestType") << wrong;
}

// ---------------------------------------------------------------------- LogMsg

TEST(LogMsgText, StrepHasTheFixedForm) {
  EXPECT_EQ(valueToStrep(LogMsg()),
            "Value('Harbec::LogMsg', ** {'entityRef': '', 'msg': '', 'alarm': False})");
  const LogMsg m("vm-12", "it's a \\ path", true);
  const String8 expected =
      String8("Value('Harbec::LogMsg', ** {'entityRef': 'vm-12', 'msg': ") +
      Kel::valueToStrep(String8("it's a \\ path")) + ", 'alarm': True})";
  EXPECT_EQ(valueToStrep(m), expected);
  EXPECT_EQ(textOf(m), expected);
  // Only the default value is false.
  EXPECT_TRUE(!LogMsg());
  for (const LogMsg& set : {LogMsg("e", "", false), LogMsg("", "m", false), LogMsg("", "", true)})
    EXPECT_FALSE(!set);
}

TEST(LogMsgText, ParseFailureMessages) {
  const String8 head(kLogMsgHead);
  const std::string premature = "premature end of value type LogMsg";
  EXPECT_EQ(parseFailure<LogMsg>(head), premature);
  EXPECT_EQ(parseFailure<LogMsg>(head + "  \n"), premature);
  EXPECT_EQ(parseFailure<LogMsg>(head + "'msg': 'm', 'alarm': True "), premature);

  EXPECT_EQ(parseFailure<LogMsg>(head + "'severity': 'high'})"),
            "LogMsg has no such attribute: severity");
  // Keys are exact, and checked before their value is read.
  EXPECT_EQ(parseFailure<LogMsg>(head + "'msg': 'm', 'Alarm': garbage"),
            "LogMsg has no such attribute: Alarm");

  // A bad field value fails as its reader does, renamed for the field.
  EXPECT_EQ(parseFailure<LogMsg>(head + "'alarm': 'yes'})"), fieldFailure<bool>("'yes'", "alarm"));
  EXPECT_EQ(parseFailure<LogMsg>(head + "'entityRef': 12})"),
            fieldFailure<String8>("12", "entityRef"));
  EXPECT_EQ(parseFailure<LogMsg>(head + "'msg': 'open})"),
            fieldFailure<String8>("'open})", "msg"));
}

// ---------------------------------------------------------- exception records

// ---------------------------------------------------------- BoundedString255

TEST(BoundedString255Text, At255BytesAcceptedAt256Refused) {
  const std::string refused = "BoundedString255::bytes > 255 not allowed";
  const String8 s255(std::string(255, 'a'));
  const String8 s256(std::string(256, 'b'));

  EXPECT_EQ(BoundedString255(s255).value(), s255);
  EXPECT_EQ(rangeMessage([&] { BoundedString255 b(s256); }), refused);
  EXPECT_EQ(rangeMessage([&] { BoundedString255 b(s256.charPtr()); }), refused);

  BoundedString255 b("kept");
  b = s255;
  EXPECT_EQ(b.value(), s255);
  b = "kept";
  EXPECT_EQ(rangeMessage([&] { b = s256; }), refused);
  EXPECT_EQ(b.value(), "kept");

  EXPECT_EQ(Kel::strepToValue<BoundedString255>(Kel::valueToStrep(s255)).value(), s255);
  EXPECT_EQ(parseFailure<BoundedString255>(Kel::valueToStrep(s256)), refused);
  // 255 bytes once the escapes are read, though the text itself is longer.
  const String8 quotes(std::string(255, '\''));
  EXPECT_EQ(Kel::strepToValue<BoundedString255>(Kel::valueToStrep(quotes)).value(), quotes);
  // Its text form is that of the string; streamed, it is the bytes.
  EXPECT_EQ(valueToStrep(BoundedString255("it's")), Kel::valueToStrep(String8("it's")));
  EXPECT_EQ(textOf(BoundedString255("it's")), "it's");
}
