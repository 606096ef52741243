// What the vShield session adds to its HTTP exchange when the host agent
// asks for it through VsConfig (timeouts, a cap on the reply, certificate
// checks, the proxy), and the words for what went wrong. With none of them
// set, an exchange is made with the specified options alone.
#pragma once
#include <curl/curl.h>

#include <string>

#include "standins/Status.h"
#include "vshield/HttpRetrieval.h"

namespace Harbec {

void applyLimits(CURL* curl, const VsConfig& config, MemoryBuffer& buffer);

// A transfer that failed before a status came: "no connection to
// 127.0.0.1:1: Connection refused", "no reply within 30 s", ...
std::string transferFailure(CURL* curl, CURLcode code, const VsConfig& config);

}  // namespace Harbec
