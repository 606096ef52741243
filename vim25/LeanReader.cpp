#include <stdsoap2.h>

#include <string>

#include "ReadCount.h"

namespace Vim25 {

std::atomic<uint64_t> objectUpdatesRead{0};

char* stringIn(struct soap* soap, int flag, long minlen, long maxlen, const char* pattern) {
  thread_local std::string scratch;
  char* text = soap_string_in(soap, flag, minlen, maxlen, pattern);
  if (!text) return nullptr;
  scratch.assign(text);
  soap_dealloc(soap, text);
  return scratch.data();
}

}  // namespace Vim25
