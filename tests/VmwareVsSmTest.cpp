// The vShield session against the vShield Manager stand-in, over real
// sockets on 127.0.0.1: session state and its log, RestStatus, the failure
// table, batches through a RestThread, the assertions, and the
// reconciliation of each record kind into the VS tree, with every write
// that a reactor of the host agent would hear.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include "Kel/Lock.h"
#include "Kel/Log.h"
#include "messaging/HarbecTrace.h"
#include "peers/VsmStub.h"
#include "support/LogCapture.h"
#include "vshield/VmwareVsSm.h"

using namespace Harbec;
using Lines = std::vector<std::string>;

namespace {

using testsupport::LogCapture;

// Writes heard on the VS tree: "+key" and "-key" for members coming and
// going, "key.attribute" for each attribute of a member.
using Writes = std::vector<std::string>;

template <class N>
struct RecordListener : N {
  Writes* w = nullptr;
  std::string key;
  void hit(const std::string& attr) { w->push_back(key + "." + attr); }
  void onDisplayName() override { hit("displayName"); }
  void onDescription() override { hit("description"); }
  void onRevision() override { hit("revision"); }
};
struct SegmentListener : RecordListener<VxlanSegment::Notifiee> {
  void onVni() override { hit("vni"); }
  void onMulticastIpAddr() override { hit("multicastIpAddr"); }
  void onNetworkScope() override { hit("networkScope"); }
  void onDvsPortGroup(const Kel::String8& k) override { hit("dvsPortGroup:" + k.str()); }
};
struct ScopeListener : RecordListener<NetworkScope::Notifiee> {
  void onCluster(const Kel::String8& k) override { hit("cluster:" + k.str()); }
};
struct ClusterListener : RecordListener<Cluster::Notifiee> {
  void onDatacenter() override { hit("datacenter"); }
  void onDvs() override { hit("dvs"); }
};
template <class N>
struct RangeListener : RecordListener<N> {
  void onBegin() override { this->hit("begin"); }
  void onEnd() override { this->hit("end"); }
};

struct TreeListener : VS::Notifiee {
  Writes w;
  std::map<std::string, std::unique_ptr<Kel::Entity::NotifieeConst>> members;
  template <class L, class R>
  void member(const Kel::Name& k, const Kel::Ptr<R>& record) {
    w.push_back((record ? "+" : "-") + k.str());
    members.erase(k.str());
    if (!record) return;
    auto l = std::make_unique<L>();
    l->w = &w;
    l->key = k.str();
    l->notifierIs(record);
    members[k.str()] = std::move(l);
  }
  void onVxlanSegment(const Kel::Name& k) override { member<SegmentListener>(k, notifier()->vxlanSegment(k)); }
  void onNetworkScope(const Kel::Name& k) override { member<ScopeListener>(k, notifier()->networkScope(k)); }
  void onCluster(const Kel::Name& k) override { member<ClusterListener>(k, notifier()->cluster(k)); }
  void onVniRange(const Kel::Name& k) override {
    member<RangeListener<VniRange::Notifiee>>(k, notifier()->vniRange(k));
  }
  void onMulticastAddrRange(const Kel::Name& k) override {
    member<RangeListener<MulticastAddrRange::Notifiee>>(k, notifier()->multicastAddrRange(k));
  }
  // The record keys that the writes touched.
  std::set<std::string> touched() const {
    std::set<std::string> keys;
    for (const auto& e : w) keys.insert(e[0] == '+' || e[0] == '-' ? e.substr(1) : e.substr(0, e.find('.')));
    return keys;
  }
};

RestRequest::Ptr get(VsDataType type, const std::string& endpoint) {
  auto r = restRequestFactory(Kel::Name(endpoint), type, httpGET);
  r->endPointIs(endpoint);
  return r;
}

// The string items of a JSON array `key` (ids only: no escapes).
std::set<std::string> ids(const std::string& json, const std::string& key) {
  std::set<std::string> out;
  size_t p = json.find("\"" + key + "\":[");
  if (p == std::string::npos) return out;
  size_t q = json.find('[', p), end = json.find(']', p);
  while ((q = json.find('"', q + 1)) < end) {
    size_t e = json.find('"', q + 1);
    out.insert(json.substr(q + 1, e - q - 1));
    q = e;
  }
  return out;
}

// A session whose every request goes to the stand-in.
class VsSession : public ::testing::Test {
 protected:
  void SetUp() override {
    config->urlIs(stub.url);
    config->usernameIs("admin");
    config->passwordIs("default");
    sm = vmwareVsSmFactory(rest, session, config, vs, false);
    tree.notifierIs(vs);
  }
  // Configures the answer at endpoint: `spec` is the rest of the JSON object.
  std::string serve(const std::string& endpoint, const std::string& spec) {
    return stub.answer("{\"path\":\"" + endpoint + "\"," + spec + "}");
  }
  void fetch(VsDataType type, const std::string& endpoint) { sm->processRestRequest(get(type, endpoint)); }
  void expectFailure(const std::string& endpoint, long code, const Lines& log) {
    unsigned failures = rest->failureCount();
    fetch(vsCluster, endpoint);
    EXPECT_EQ(rest->failureCount(), failures + 1) << code;
    EXPECT_EQ(rest->lastFailureReason(), std::to_string(code));
    EXPECT_EQ(rest->lastFailedMsg(), Kel::String8(endpoint));
    EXPECT_EQ(rest->lastResponseTime(), 0.0);
    EXPECT_EQ(rest->lastFailureTime(), rest->lastMsgSentTime());
    EXPECT_EQ(session->sessionState(), sessionDisconnected);
    EXPECT_EQ(logs.take(), log) << code;
  }

  vsmstub::Stub stub;
  LogCapture logs;
  RestStatus::Ptr rest = restStatusFactory("rest");
  SessionStatus::Ptr session = sessionStatusFactory("session");
  VsConfig::Ptr config = vsConfigFactory("config");
  VS::Ptr vs = vSFactory("vs");
  VmwareVsSm::Ptr sm;
  TreeListener tree;
};

const char* const kHeartbeat = "api/2.0/global/heartbeat";
const char* const kConnected = "VMWAREVS_CONNECTION_SUCCESSFUL: Successfully connected to VShield Manager.";
const char* const kServer = "VMWAREVS_SERVER: Pathline detected an internal error in VShield Manager.";

}  // namespace

TEST_F(VsSession, HeartbeatConnectsAndLogsOncePerEntryIntoConnected) {
  EXPECT_EQ(session->sessionState(), sessionInit);
  serve(kHeartbeat, R"("generate":{"kind":"heartbeat"})");
  serve("api/2.0/vdn/scopes", R"("status":503)");
  serve("api/2.0/vdn/config/segments", R"("generate":{"kind":"segmentRanges","count":1})");

  fetch(vsHeartBeat, kHeartbeat);
  EXPECT_EQ(session->sessionState(), sessionConnected);
  fetch(vsHeartBeat, kHeartbeat);
  EXPECT_EQ(logs.take(), Lines{kConnected});
  fetch(vsNetworkScope, "api/2.0/vdn/scopes");
  EXPECT_EQ(session->sessionState(), sessionDisconnected);
  // A data request that succeeds doesn't reconnect; only a heartbeat does.
  fetch(vsVniRange, "api/2.0/vdn/config/segments");
  EXPECT_EQ(session->sessionState(), sessionDisconnected);
  fetch(vsHeartBeat, kHeartbeat);
  EXPECT_EQ(session->sessionState(), sessionConnected);
  EXPECT_EQ(logs.take(), (Lines{kServer, kConnected}));

  EXPECT_EQ(rest->successCount(), 4u);
  EXPECT_EQ(rest->failureCount(), 1u);
  EXPECT_EQ(rest->lastSuccessMsg(), kHeartbeat);
  EXPECT_EQ(rest->lastSuccessTime(), rest->lastMsgSentTime());
  EXPECT_GE(rest->lastResponseTime(), 0.0);
  // Each went as a GET of url + "/" + endpoint with the basic credentials.
  std::string log = stub.call("GET", "/log");
  EXPECT_EQ(vsmstub::values(log, "uri"),
            (Lines{"/api/2.0/global/heartbeat", "/api/2.0/global/heartbeat", "/api/2.0/vdn/scopes",
                   "/api/2.0/vdn/config/segments", "/api/2.0/global/heartbeat"}));
  EXPECT_EQ(vsmstub::values(log, "method"), Lines(5, "GET"));
  EXPECT_EQ(vsmstub::values(log, "user"), Lines(5, "admin"));
  EXPECT_EQ(vsmstub::values(log, "password"), Lines(5, "default"));

  // No version is needed, but a reply that parses is.
  serve(kHeartbeat, R"("body":"<vsmGlobalInfo/>")");
  fetch(vsHeartBeat, kHeartbeat);
  EXPECT_EQ(session->sessionState(), sessionConnected);
  serve(kHeartbeat, R"("broken":"html")");
  fetch(vsHeartBeat, kHeartbeat);
  EXPECT_EQ(session->sessionState(), sessionDisconnected);
  EXPECT_EQ(logs.take(), Lines{"VMWAREVS_REST_FAULT: The REST request api/2.0/global/heartbeat failed."});
}

// The statuses beyond those of every exchange's fault table: a 400 the
// server sends, statuses without a log line, a 404 logged with the full
// address.
TEST_F(VsSession, FailuresAreCountedAndLoggedByStatus) {
  const std::map<int, Lines> table = {
      {400, {"VMWAREVS_CONNECTION_FAILED: Failed to connect to VShield Manager."}}, {501, {kServer}},
      {502, {kServer}}, {504, {kServer}}, {505, {}}, {302, {}}, {418, {}}};
  for (const auto& [code, log] : table) {
    std::string endpoint = "fail/" + std::to_string(code);
    serve(endpoint, "\"status\":" + std::to_string(code) + (code == 302 ? R"(,"redirect":"/elsewhere")" : ""));
    expectFailure(endpoint, code, log);
  }
  expectFailure("api/none", 404, {"VMWAREVS_REST_FAULT: The REST request " + stub.url + "/api/none failed."});
  EXPECT_EQ(rest->successCount(), 0u);
}

TEST_F(VsSession, DiesOnAnythingButGetAndOnAnUnknownDataTypeAfterTheFetch) {
  auto put = restRequestFactory("put", vsVniRange, httpPUT);
  put->endPointIs("api/put");
  EXPECT_DEATH(sm->processRestRequest(put), "Only HTTP GETS supported");
  serve("api/odd", R"("body":"<ok/>")");
  EXPECT_DEATH(fetch(unknownVsDataType, "api/odd"), "Unexpected Vshield data type");
  EXPECT_DEATH(fetch(VsDataType(8), "api/odd"), "Unexpected Vshield data type");
  EXPECT_EQ(stub.uris(), (Lines{"/api/odd", "/api/odd"}));
}

// Each record kind: added, left alone when nothing changed, updated when the
// fresh revision is higher and only then, deleted when missing.
struct Kind {
  const char* name;
  VsDataType type;
  const char* generator;
  const char* changeField;
  std::function<size_t(const VS::Ptr&)> size;
  std::function<Kel::Ptr<VsDataModel>(const VS::Ptr&, const Kel::Name&)> member;
};

void PrintTo(const Kind& k, std::ostream* os) { *os << k.name; }

class VsKind : public VsSession, public ::testing::WithParamInterface<Kind> {};

TEST_P(VsKind, ReconcilesWithTheLeastWriting) {
  const Kind& k = GetParam();
  const std::string ep = std::string("api/") + k.generator;
  const std::string gen = std::string(R"("generate":{"kind":")") + k.generator + R"(","count":6)";
  serve(ep, gen + "}");
  fetch(k.type, ep);
  ASSERT_EQ(k.size(vs), 6u);
  EXPECT_EQ(tree.touched().size(), 6u);

  tree.w.clear();
  fetch(k.type, ep);
  EXPECT_EQ(tree.w, Writes{}) << "a poll that changes nothing writes nothing";

  const std::string changes = std::string(R"(,"changePercent":50,"removePercent":17,"addCount":1,"changeField":")") +
                              k.changeField + "\"";
  std::string info = serve(ep, gen + changes + "}");
  std::set<std::string> changed = ids(info, "changedIds"), removed = ids(info, "removedIds"),
                         added = ids(info, "addedIds");
  ASSERT_EQ(changed.size(), 3u);
  ASSERT_EQ(removed.size(), 1u);
  ASSERT_EQ(added.size(), 1u);
  tree.w.clear();
  fetch(k.type, ep);
  std::set<std::string> expected = changed;
  expected.insert(removed.begin(), removed.end());
  expected.insert(added.begin(), added.end());
  EXPECT_EQ(tree.touched(), expected);
  EXPECT_EQ(tree.w.front(), "-" + *removed.begin()) << "deletions come first";
  EXPECT_EQ(k.size(vs), 6u);
  for (const auto& id : changed) EXPECT_EQ(k.member(vs, id)->revision(), 2u) << id;

  // Changed again, but with no higher revision: the tree's copy stands.
  tree.w.clear();
  serve(ep, gen + changes + R"(,"revisionBump":0,"generation":2})");
  fetch(k.type, ep);
  EXPECT_EQ(tree.w, Writes{});
}

INSTANTIATE_TEST_SUITE_P(
    AllKinds, VsKind,
    ::testing::Values(
        Kind{"VxlanSegment", vsVxlanSegment, "virtualWires", "portGroup",
             [](const VS::Ptr& v) { return v->vxlanSegments(); },
             [](const VS::Ptr& v, const Kel::Name& n) { return Kel::Ptr<VsDataModel>(v->vxlanSegment(n)); }},
        Kind{"NetworkScope", vsNetworkScope, "vdnScopes", "cluster",
             [](const VS::Ptr& v) { return v->networkScopes(); },
             [](const VS::Ptr& v, const Kel::Name& n) { return Kel::Ptr<VsDataModel>(v->networkScope(n)); }},
        Kind{"Cluster", vsCluster, "clusterMappings", "dvs", [](const VS::Ptr& v) { return v->clusters(); },
             [](const VS::Ptr& v, const Kel::Name& n) { return Kel::Ptr<VsDataModel>(v->cluster(n)); }},
        Kind{"MulticastAddrRange", vsMulticastAddrRange, "multicastRanges", "begin",
             [](const VS::Ptr& v) { return v->multicastAddrRanges(); },
             [](const VS::Ptr& v, const Kel::Name& n) { return Kel::Ptr<VsDataModel>(v->multicastAddrRange(n)); }},
        Kind{"VniRange", vsVniRange, "segmentRanges", "end", [](const VS::Ptr& v) { return v->vniRanges(); },
             [](const VS::Ptr& v, const Kel::Name& n) { return Kel::Ptr<VsDataModel>(v->vniRange(n)); }}),
    [](const ::testing::TestParamInfo<Kind>& i) { return std::string(i.param.name); });

// A request for a page of virtual wires is answered with every page; a
// page that fails leaves the tree as it was.
TEST_F(VsSession, EveryPageOfVirtualWires) {
  const std::string wires = "api/2.0/vdn/virtualwires";
  auto page = [&](int start, int count) {
    serve(wires + "?pagesize=3&startindex=" + std::to_string(start),
          "\"generate\":{\"kind\":\"virtualWires\",\"startIndex\":" + std::to_string(start) +
              ",\"count\":" + std::to_string(count) + ",\"pageSize\":3,\"totalCount\":7}");
  };
  page(0, 3);
  page(3, 3);
  page(6, 1);
  RestRequest::Ptr request = restRequestFactory("wires", vsVxlanSegment, httpGET);
  request->endPointIs(wires);
  request->optionalArgIs("pagesize", "3");
  request->optionalArgIs("startindex", "0");
  sm->processRestRequest(request);
  EXPECT_EQ(vs->vxlanSegments(), 7u);
  EXPECT_TRUE(vs->vxlanSegment("virtualwire-6"));
  EXPECT_EQ(rest->successCount(), 3u);
  EXPECT_EQ(stub.uris().back(), "/" + wires + "?pagesize=3&startindex=6");

  serve(wires + "?pagesize=3&startindex=3", R"("status":503)");
  page(0, 2);
  tree.w.clear();
  sm->processRestRequest(request);
  EXPECT_EQ(vs->vxlanSegments(), 7u);
  EXPECT_EQ(tree.w, Writes{});
  EXPECT_EQ(session->sessionState(), sessionDisconnected);
  EXPECT_EQ(rest->lastFailedMsg(), Kel::String8(wires + "?pagesize=3&startindex=3"));
}

TEST_F(VsSession, PortGroupSetIsMergedWithTheLeastWriting) {
  auto wire = [](int revision, const char* a, const char* b) {
    auto pg = [](const char* v) {
      return std::string("<vdsContextWithBacking><backingValue>") + v + "</backingValue></vdsContextWithBacking>";
    };
    return R"("body":"<virtualWires><dataPage><virtualWire><objectId>vw</objectId><revision>)" +
           std::to_string(revision) + "</revision>" + pg(a) + pg(b) + "</virtualWire></dataPage></virtualWires>\"";
  };
  serve("api/wires", wire(1, "a", "b"));
  fetch(vsVxlanSegment, "api/wires");
  tree.w.clear();
  serve("api/wires", wire(2, "b", "c"));
  fetch(vsVxlanSegment, "api/wires");
  EXPECT_EQ(tree.w, (Writes{"vw.revision", "vw.dvsPortGroup:a", "vw.dvsPortGroup:c"}));
  VxlanSegment::Ptr w = vs->vxlanSegment("vw");
  EXPECT_EQ(w->dvsPortGroups(), 2u);
  EXPECT_TRUE(w->dvsPortGroup("b") && w->dvsPortGroup("c"));
  // The same set again: only the revision moves.
  tree.w.clear();
  serve("api/wires", wire(3, "c", "b"));
  fetch(vsVxlanSegment, "api/wires");
  EXPECT_EQ(tree.w, Writes{"vw.revision"});
}

// The handlers on hand-built documents, with no server involved.
class VsTree : public ::testing::Test {
 protected:
  void SetUp() override { tree.notifierIs(vs); }
  using Handler = void (VmwareVsSm::*)(const pugi::xml_document&);
  void apply(Handler handler, const char* xml) {
    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_string(xml));
    (sm.ptr()->*handler)(doc);
  }
  VS::Ptr vs = vSFactory("vs");
  VmwareVsSm::Ptr sm = vmwareVsSmFactory(restStatusFactory("rest"), sessionStatusFactory("session"),
                                         vsConfigFactory("config"), vs, true);
  TreeListener tree;
};

TEST_F(VsTree, DeletionsFirstThenKeyOrderAndTheLaterOfTwoElementsWins) {
  const Handler h = &VmwareVsSm::processVxlanSegmentRequest;
  apply(h, "<r><dataPage><virtualWire><objectId>old</objectId></virtualWire>"
           "<virtualWire><objectId>b</objectId><revision>1</revision></virtualWire></dataPage></r>");
  tree.w.clear();
  // A key that changes is a deletion and an addition; an empty key is a key.
  apply(h, "<r><dataPage><virtualWire><objectId>new</objectId><vdnId>1</vdnId></virtualWire>"
           "<virtualWire><objectId>b</objectId><revision>1</revision></virtualWire>"
           "<virtualWire><objectId>new</objectId><vdnId>2</vdnId></virtualWire>"
           "<virtualWire><vdnId>0</vdnId></virtualWire></dataPage></r>");
  EXPECT_EQ(tree.w, (Writes{"-old", "+", "+new", "new.vni"}));
  EXPECT_EQ(vs->vxlanSegment("new")->vni(), 2u);
  // Another shape of reply is an empty list.
  apply(h, "<virtualWires><virtualWire><objectId>b</objectId></virtualWire></virtualWires>");
  EXPECT_EQ(vs->vxlanSegments(), 0u);
}

TEST(VsRestStatus, AResultMustBeForTheEndpointLastSent) {
  RestStatus::Ptr rest = restStatusFactory("rest");
  updateRestStatusSent(rest, "api/a");
  EXPECT_DEATH(updateRestStatusResult(rest, "api/b", 200), "endpoint == status->lastMsgSent\\(\\)");
  EXPECT_DEATH(updateRestStatusResult(rest, "api/b", 404), "endpoint == status->lastMsgSent\\(\\)");
}
