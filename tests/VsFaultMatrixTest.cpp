// Every exchange of the vShield session (the heartbeat and the five data
// requests) against every way a vShield Manager can misbehave, over real
// sockets against the stand-in, with the limits a host agent sets. Each
// cell names the code the session counts, the log line, and the words of
// the failure, or of the warning about a reply taken all the same; and a
// failed exchange leaves the tree as it was.
#include <gtest/gtest.h>

#include <regex>

#include "Kel/Lock.h"
#include "peers/VsmStub.h"
#include "support/LogCapture.h"
#include "vshield/VmwareVsSm.h"

using namespace Harbec;

namespace {

struct Request {
  const char* name;
  VsDataType type;
  const char* path;
  const char* generator;
};
const Request kRequests[] = {
    {"heartbeat", vsHeartBeat, "api/2.0/global/heartbeat", "heartbeat"},
    {"virtualWires", vsVxlanSegment, "api/2.0/vdn/virtualwires", "virtualWires"},
    {"scopes", vsNetworkScope, "api/2.0/vdn/scopes", "vdnScopes"},
    {"clusters", vsCluster, "api/2.0/vdn/switches", "clusterMappings"},
    {"multicastRanges", vsMulticastAddrRange, "api/2.0/vdn/config/multicasts", "multicastRanges"},
    {"vniRanges", vsVniRange, "api/2.0/vdn/config/segments", "segmentRanges"},
};

const char* const kServer = "VMWAREVS_SERVER: Pathline detected an internal error in VShield Manager.";
const char* const kLogin = "VMWAREVS_LOGIN_ERROR: Login to VShield Manager failed.";

struct Fault {
  const char* name;
  const char* answer;  // the stand-in's answer fields, beside the generated reply; "" for a stopped stand-in
  const char* code;    // what the session counts: "200", or lastFailureReason
  const char* log;     // the log line, "REST" for VMWAREVS_REST_FAULT of the endpoint, "" for none
  const char* words;   // the failure's words, or for a reply taken, the warning on data requests
};
const Fault kFaults[] = {
    {"refused", "", "400", "", "no connection: Connection refused"},
    {"drop", R"("drop":true)", "400", "", "connection closed without a reply"},
    {"dropMidReply", R"("closeAfterBytes":40)", "400", "", "connection closed after 40 of [0-9]+ bytes"},
    {"silent", R"("hang":true)", "400", "", "no reply within 0.5 s"},
    {"trickle", R"("chunkSize":1,"chunkDelayMs":300)", "400", "", "reply not complete within 0.5 s \\([0-9] bytes came\\)"},
    {"truncate", R"("broken":"truncate")", "500", "REST", "HTTP 200, but the reply is not XML: .* at byte [0-9]+ of [0-9]+"},
    {"corrupt", R"("broken":"html")", "500", "REST", "HTTP 200, but the reply is not XML: .*"},
    {"wrongShape", R"("body":"<error><details>busy</details></error>")", "200", "", "no <[a-zA-Z]+> (but <details> )?in <error>: taken as an empty list"},
    {"fault", R"("status":500,"body":"<error><details>busy</details><errorCode>202</errorCode></error>")", "500",
     kServer, "HTTP 500 Internal Server Error"},
    {"status401", R"("status":401)", "401", kLogin, "HTTP 401 Unauthorized"},
    {"status403", R"("status":403)", "403", kLogin, "HTTP 403 Forbidden"},
    {"status500", R"("status":500)", "500", kServer, "HTTP 500 Internal Server Error"},
    {"status503", R"("status":503)", "503", kServer, "HTTP 503 Service Unavailable"},
    {"huge", R"("padTo":104857600)", "400", "", "reply larger than 16777216 bytes"},
};

class VsFaultMatrix : public testing::TestWithParam<std::tuple<Request, Fault>> {
 protected:
  void SetUp() override {
    config->urlIs(stub.url);
    config->usernameIs("admin");
    config->passwordIs("default");
    config->connectTimeoutIs(2);
    config->replyTimeoutIs(0.5);
    config->maxReplyBytesIs(16 << 20);
    config->proxyIs("direct");
    sm = vmwareVsSmFactory(rest, session, config, vs, false);
  }
  void fetch(const Request& r) {
    RestRequest::Ptr request = restRequestFactory(Kel::Name(r.name), r.type, httpGET);
    request->endPointIs(r.path);
    sm->processRestRequest(request);
  }
  // The generated reply of the request, with the fault's fields beside it;
  // a body of the fault's own stands instead.
  void serve(const Request& r, const std::string& fields) {
    std::string generated = std::string(R"("generate":{"kind":")") + r.generator + R"(","count":3})";
    if (fields.find("\"body\"") != std::string::npos) return (void)stub.serve(r.path, fields);
    stub.serve(r.path, generated + (fields.empty() ? "" : "," + fields));
  }
  size_t records() const { return vs->vxlanSegments() + vs->networkScopes() + vs->clusters() +
                                  vs->multicastAddrRanges() + vs->vniRanges(); }

  vsmstub::Stub stub;
  testsupport::LogCapture log;
  RestStatus::Ptr rest = restStatusFactory("rest");
  SessionStatus::Ptr session = sessionStatusFactory("session");
  VsConfig::Ptr config = vsConfigFactory("config");
  VS::Ptr vs = vSFactory("vs");
  VmwareVsSm::Ptr sm;
};

TEST_P(VsFaultMatrix, Cell) {
  const auto& [r, f] = GetParam();
  serve(r, "");
  fetch(r);  // a good reply first, so that a failure must leave it standing
  const size_t before = records();
  log.take();

  if (*f.answer)
    serve(r, f.answer);
  else
    stub.stop();
  fetch(r);

  Kel::ActivityLockAnchor anchor;
  const bool failed = std::string(f.code) != "200";
  EXPECT_EQ(rest->failureCount(), failed ? 1u : 0u);
  if (failed) {
    EXPECT_EQ(rest->lastFailureReason(), f.code);
    EXPECT_EQ(session->sessionState(), sessionDisconnected);
    EXPECT_EQ(records(), before) << "a failed exchange leaves the tree alone";
    EXPECT_TRUE(std::regex_match(rest->lastFailureDetail().str(), std::regex(f.words))) << rest->lastFailureDetail();
  } else if (r.type != vsHeartBeat) {
    EXPECT_TRUE(std::regex_match(rest->lastReplyWarning().str(), std::regex(f.words))) << rest->lastReplyWarning();
    EXPECT_EQ(records(), 0u) << "the reply of another shape is taken as an empty list";
  } else {
    EXPECT_EQ(session->sessionState(), sessionConnected) << "a heartbeat needs no version";
  }
  std::string line = std::string(f.log) == "REST" ? "VMWAREVS_REST_FAULT: The REST request " + std::string(r.path) +
                                                       " failed."
                                                 : f.log;
  EXPECT_EQ(log.take(), line.empty() ? testsupport::LogCapture::Lines{} : testsupport::LogCapture::Lines{line});
}

INSTANTIATE_TEST_SUITE_P(All, VsFaultMatrix, testing::Combine(testing::ValuesIn(kRequests), testing::ValuesIn(kFaults)),
                         [](const testing::TestParamInfo<VsFaultMatrix::ParamType>& i) {
                           return std::string(std::get<0>(i.param).name) + "_" + std::get<1>(i.param).name;
                         });

// The HTTPS road, as real managers serve it with a self-signed certificate:
// taken as it is by default, refused when a CA file is given that did not
// sign it.
TEST(VsTls, SelfSignedManager) {
  vsmstub::Stub stub(true);
  stub.serve("api/2.0/global/heartbeat", R"("generate":{"kind":"heartbeat"})");
  ASSERT_EQ(stub.url.rfind("https://", 0), 0u);
  RestStatus::Ptr rest = restStatusFactory("rest");
  SessionStatus::Ptr session = sessionStatusFactory("session");
  VsConfig::Ptr config = vsConfigFactory("config");
  config->urlIs(stub.url);
  config->usernameIs("admin");
  config->passwordIs("default");
  VmwareVsSm::Ptr sm = vmwareVsSmFactory(rest, session, config, vSFactory("vs"), false);
  testsupport::LogCapture log;
  auto heartbeat = [&] {
    RestRequest::Ptr r = restRequestFactory("heartbeat", vsHeartBeat, httpGET);
    r->endPointIs("api/2.0/global/heartbeat");
    sm->processRestRequest(r);
    Kel::ActivityLockAnchor anchor;
    return session->sessionState();
  };
  EXPECT_EQ(heartbeat(), sessionConnected);
  config->caFileIs("/etc/ssl/certs/ca-certificates.crt");
  EXPECT_EQ(heartbeat(), sessionDisconnected);
  Kel::ActivityLockAnchor anchor;
  EXPECT_EQ(rest->lastFailureDetail().str().rfind("certificate not trusted: ", 0), 0u) << rest->lastFailureDetail();
}

}  // namespace
