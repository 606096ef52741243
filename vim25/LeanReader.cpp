#include <stdsoap2.h>

#include <string>

namespace Vim25 {

char* stringIn(struct soap* soap, int flag, long minlen, long maxlen, const char* pattern) {
  thread_local std::string scratch;
  char* text = soap_string_in(soap, flag, minlen, maxlen, pattern);
  if (!text) return nullptr;
  scratch.assign(text);
  soap_dealloc(soap, text);
  return scratch.data();
}

}  // namespace Vim25
