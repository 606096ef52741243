#include "vshield/HttpLimits.h"

#include <cstring>

#include "Kel/Assert.h"

namespace Harbec {

namespace {

long milliseconds(double seconds) { return static_cast<long>(seconds * 1000 + 0.5); }

void set(CURL* curl, CURLoption option, long value) {
  CURLcode result = curl_easy_setopt(curl, option, value);
  KEL_ASSERT(result == CURLE_OK && "Set a limit of the exchange failed");
}

void set(CURL* curl, CURLoption option, const char* value) {
  CURLcode result = curl_easy_setopt(curl, option, value);
  KEL_ASSERT(result == CURLE_OK && "Set a limit of the exchange failed");
}

std::string seconds(double s) {
  std::string text = std::to_string(s);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text + " s";
}

}  // namespace

void applyLimits(CURL* curl, const VsConfig& config, MemoryBuffer& buffer) {
  if (config.connectTimeout() > 0) set(curl, CURLOPT_CONNECTTIMEOUT_MS, milliseconds(config.connectTimeout()));
  if (config.replyTimeout() > 0) set(curl, CURLOPT_TIMEOUT_MS, milliseconds(config.replyTimeout()));
  if (config.maxReplyBytes() > 0) {
    buffer.cap = static_cast<size_t>(config.maxReplyBytes());
    set(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<long>(config.maxReplyBytes()));
  }
  if (config.caFile().length()) {
    set(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    set(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    set(curl, CURLOPT_CAINFO, config.caFile().charPtr());
  }
  if (config.proxy() == "direct")
    set(curl, CURLOPT_PROXY, "");
  else if (config.proxy().length())
    set(curl, CURLOPT_PROXY, config.proxy().charPtr());
}

std::string transferFailure(CURL* curl, CURLcode code, const VsConfig& config) {
  long osError = 0;
  curl_easy_getinfo(curl, CURLINFO_OS_ERRNO, &osError);
  curl_off_t got = 0, expected = -1;
  curl_easy_getinfo(curl, CURLINFO_SIZE_DOWNLOAD_T, &got);
  curl_easy_getinfo(curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &expected);
  switch (code) {
    case CURLE_COULDNT_CONNECT:
      return std::string("no connection") + (osError ? std::string(": ") + std::strerror(osError) : "");
    case CURLE_OPERATION_TIMEDOUT:
      return got > 0 ? "reply not complete within " + seconds(config.replyTimeout()) + " (" + std::to_string(got) +
                           " bytes came)"
                     : "no reply within " + seconds(config.replyTimeout() > 0 ? config.replyTimeout()
                                                                                : config.connectTimeout());
    case CURLE_GOT_NOTHING:
      return "connection closed without a reply";
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
      return "connection closed after " + std::to_string(got) + " of " +
             (expected >= 0 ? std::to_string(expected) : std::string("?")) + " bytes";
    case CURLE_FILESIZE_EXCEEDED:
      return "reply larger than " + std::to_string(config.maxReplyBytes()) + " bytes";
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
      return std::string("certificate not trusted: ") + curl_easy_strerror(code);
    default:
      return std::string(curl_easy_strerror(code)) + (osError ? std::string(": ") + std::strerror(osError) : "");
  }
}

}  // namespace Harbec
