#include "vshield/HttpRetrieval.h"

#include <curl/curl.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

#include "Kel/Assert.h"
#include "messaging/HarbecTrace.h"
#include "messaging/TextUtils.h"
#include "vshield/HttpLimits.h"
#include "vshield/VsLog.h"

namespace Harbec {

MemoryBuffer::MemoryBuffer() : buffer(static_cast<char*>(std::malloc(1))), size(0), prevSize(0) {
  HARBEC_TRACE_ENTRY();
}

MemoryBuffer::~MemoryBuffer() {
  HARBEC_TRACE_ENTRY();
  if (buffer) std::free(buffer);
}

void MemoryBuffer::incrSize(size_t n) {
  HARBEC_TRACE_ENTRY();
  prevSize = size;
  resize(size + n);
}

void MemoryBuffer::resize(size_t newSize) {
  HARBEC_TRACE_ENTRY();
  // Exact growth: one byte beyond the data, for the terminator.
  buffer = static_cast<char*>(std::realloc(buffer, newSize + 1));
  if (!buffer) {
    HARBEC_TRACE(0, "OOM (realloc returned NULL)\n");
    std::exit(1);
  }
  size = newSize;
}

size_t populateMemoryCallback(void* ptr, size_t size, size_t nmemb, void* userdata) {
  HARBEC_TRACE_ENTRY();
  size_t n = size * nmemb;
  MemoryBuffer* mem = static_cast<MemoryBuffer*>(userdata);
  // Anything but n ends the transfer.
  if (mem->cap && mem->size + n > mem->cap) {
    mem->failure = "reply larger than " + std::to_string(mem->cap) + " bytes";
    return 0;
  }
  mem->incrSize(n);
  std::memcpy(mem->buffer + mem->prevSize, ptr, n);
  mem->buffer[mem->size] = 0;
  return n;
}

long httpGetRequest(VmwareVsSm::Ptr sm, const Kel::String8& endpoint, MemoryBuffer& buffer) {
  HARBEC_TRACE_ENTRY();
  // Read once: a change of configuration counts from the next request.
  const VsConfig::PtrConst& config = sm->vsConfig();
  Kel::String8 url = config->url();
  Kel::String8 username = config->username();
  Kel::String8 password = config->password();

  // A blind join: a slash at either side gives a double slash.
  std::string address = url.str() + "/" + endpoint.str();
  std::string userpwd = username.str() + ":" + password.str();

  CURL* curl = curl_easy_init();
  CURLcode result = curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
  KEL_ASSERT(result == CURLE_OK && "Set CURLOPT_SSL_VERIFYPEER failed");
  result = curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
  KEL_ASSERT(result == CURLE_OK && "Set CURLOPT_HTTPGET failed");
  HARBEC_TRACE(6, "Endpoint: " << address);
  result = curl_easy_setopt(curl, CURLOPT_URL, address.c_str());
  KEL_ASSERT(result == CURLE_OK && "Set CURLOPT_URL failed");
  HARBEC_TRACE(6, "UserName: " << username);
  HARBEC_TRACE(6, "UserName: " << password);
  result = curl_easy_setopt(curl, CURLOPT_USERPWD, userpwd.c_str());
  KEL_ASSERT(result == CURLE_OK && "Set CURLOPT_USERPWD failed");
  result = curl_easy_setopt(curl, CURLOPT_WRITEDATA, &buffer);
  KEL_ASSERT(result == CURLE_OK && "Set CURLOPT_WRITEDATA failed");
  result = curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, populateMemoryCallback);
  KEL_ASSERT(result == CURLE_OK && "Set CURLOPT_WRITEFUNCTION failed");
  applyLimits(curl, *config, buffer);

  CURLcode performed = curl_easy_perform(curl);
  HARBEC_TRACE(6, "curl_easy_perform result: " << performed);
  if (performed != CURLE_OK) {
    // No answer at all: seen in traces, RestStatus and the session state only.
    HARBEC_TRACE(0, "curl_easy_perform failed:\n" << curl_easy_strerror(performed));
    HARBEC_TRACE(0, "Endpoint: " << address);
    if (buffer.failure.empty()) buffer.failure = transferFailure(curl, performed, *config);
    curl_easy_cleanup(curl);
    return 400;
  }

  HARBEC_TRACE(6, "Bytes retrieved: " << buffer.size);
  HARBEC_TRACE(7, "Retrieved: " << std::string(buffer.buffer, buffer.size) << "\n");

  long code = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &code);
  if (code != 200) {
    HARBEC_TRACE(0, "HTTP Error code: " << code);
    buffer.failure = httpStatusLine(code);
    switch (code) {
      case 400:
        Kel::log(VMWAREVS_CONNECTION_FAILED);
        break;
      case 401:
      case 403:
        Kel::log(VMWAREVS_LOGIN_ERROR);
        break;
      case 404:
        Kel::log(VMWAREVS_REST_FAULT, address);
        break;
      case 500:
      case 501:
      case 502:
      case 503:
      case 504:
        Kel::log(VMWAREVS_SERVER);
        break;
      default:
        break;
    }
  }
  curl_easy_cleanup(curl);
  return code;
}

std::string nodeToString(pugi::xml_node node) {
  std::ostringstream os;
  node.print(os, "\t", pugi::format_indent, pugi::encoding_auto, 0);
  return os.str();
}

}  // namespace Harbec
