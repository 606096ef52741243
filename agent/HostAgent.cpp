#include "agent/HostAgent.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <ctime>
#include <map>
#include <mutex>
#include <ostream>
#include <set>
#include <thread>

#include "Kel/Lock.h"
#include "Kel/Log.h"
#include "agent/Changes.h"
#include "agent/Failure.h"
#include "agent/PortCounters.h"
#include "agent/Relays.h"
#include "agent/ServiceManager.h"
#include "agent/Supervisor.h"
#include "agent/SwitchView.h"
#include "agent/SyncProgress.h"
#include "session/HarbecSm.h"
#include "vshield/VmwareVsSm.h"

namespace HarbecAgent {

using namespace Harbec;

double backoffDelay(unsigned attempt, double cap) {
  if (attempt == 0) return 0;
  double d = std::ldexp(1.0, static_cast<int>(std::min(attempt, 30u)) - 1);
  return d < cap ? d : cap;
}

namespace {

const double kRequestTimeout = 300;  // a SOAP call gives up after 180 s
const double kSyncTimeout = 600;

// vShield Manager paths of the five kinds of records, and of the heartbeat.
struct VsEndpoint {
  const char* name;
  VsDataType type;
  const char* path;
};
const VsEndpoint kHeartbeat{"heartbeat", vsHeartBeat, "api/2.0/global/heartbeat"};
const VsEndpoint kVsData[] = {
    {"clusters", vsCluster, "api/2.0/vdn/switches"},
    {"multicastRanges", vsMulticastAddrRange, "api/2.0/vdn/config/multicasts"},
    {"networkScopes", vsNetworkScope, "api/2.0/vdn/scopes"},
    {"vniRanges", vsVniRange, "api/2.0/vdn/config/segments"},
    {"virtualWires", vsVxlanSegment, "api/2.0/vdn/virtualwires"},
};

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string clock() {
  std::time_t t = std::time(nullptr);
  char buf[16];
  std::strftime(buf, sizeof buf, "%H:%M:%S", std::localtime(&t));
  return buf;
}

struct VcSession {
  std::string instance;
  SoapStatus::Ptr soapStatus = soapStatusFactory("soapStatus");
  SessionStatus::Ptr sessionStatus = sessionStatusFactory("sessionStatus");
  ViConfig::Ptr config = viConfigFactory("viConfig");
  HarbecSm::Ptr sm;
  SoapRelay::Ptr relay;
  SoapThread::Ptr thread;
  std::string wordsSeen;
};

}  // namespace

struct HostAgent::Impl {
  Settings settings;
  const Options& o;
  Board* board = nullptr;
  double startedAt = now();
  std::ostream& out;
  std::ostream& err;
  std::mutex errMutex;
  ServedRequests served;
  unsigned serial = 0;

  VI::Ptr vi = vIFactory("vi");
  VcSession update, requests;
  // Port counters are given up after their first failure: a vCenter that
  // refuses FetchDVPorts refuses it every time.
  bool countersWanted = true;
  unsigned failuresBeforeRound = 0;
  std::vector<PortAsk> portAsked;

  VS::Ptr vs;
  RestStatus::Ptr restStatus;
  SessionStatus::Ptr vsSessionStatus;
  VsConfig::Ptr vsConfig;
  VmwareVsSm::Ptr vsm;
  RestRelay::Ptr restRelay;
  RestThread::Ptr restThread;

  Impl(Settings s, std::ostream& o_, std::ostream& e) : settings(std::move(s)), o(settings.options), out(o_), err(e) {}

  void say(const std::string& line) {
    std::lock_guard<std::mutex> g(errMutex);
    err << line << std::endl;
  }

  void start();
  void startSession(VcSession& s, const char* instance);
  std::string post(VcSession& s, const SoapRequest::Ptr& r) {
    s.thread->addWebServiceRequest(r);
    return r->name().str();
  }
  std::string postRest(const RestRequest::Ptr& r) {
    restThread->addWebServiceRequest(r);
    return r->name().str();
  }
  Kel::Name fresh(const std::string& what) { return Kel::Name(what + "-" + std::to_string(++serial)); }

  // What the session recorded of its last failure, in the library's words
  // where it has them.
  SoapFailure lastFailure(const VcSession& s) {
    Kel::ActivityLockAnchor lock;
    SoapFailure f = soapFailure(s.soapStatus->lastError().str());
    if (s.soapStatus->lastFailureDetail().length()) f.reason = oneLine(s.soapStatus->lastFailureDetail().str());
    return f;
  }
  // The words of the failure a session recorded last: the one whose words
  // changed since this was last asked.
  std::string latestWords() {
    Kel::ActivityLockAnchor lock;
    std::string words;
    for (VcSession* s : {&update, &requests}) {
      std::string w = s->soapStatus->lastFailureDetail().str();
      if (w != s->wordsSeen || words.empty()) words = w;
      s->wordsSeen = w;
    }
    return words.empty() ? "no words recorded" : words;
  }
  bool connect(VcSession& s, std::string* error);
  bool waitForSync(const std::string& loop, SyncProgress& progress, std::string* error);
  void addInterfaces();
  bool discoverInterfaces();
  std::vector<std::string> postRound(bool firstRound);
  enum class VsmStep { idle, heartbeat, data };
  VsmStep vsmStep = VsmStep::idle;
  std::string vsmPending;  // the name of the vShield request under way
  double vsmNext = 0;      // when the next vShield round is due
  bool vsmServed() { return vsmPending.empty() || served.has(vsmPending); }
  void vsmRound();
  void awaitVsmRound(double seconds);
  std::vector<std::string> postHints();
  std::vector<std::string> postCounters();
  void takeCounters();
  void checkCounters();
  Snapshot snapshot();
  std::string vshieldState();
  void print(const Snapshot& s);
  void publish(const Snapshot& s, const std::vector<std::string>& changes);
  void observeExchanges();
  void count(const std::string& family, const std::string& labels = "", double delta = 1) {
    if (board) board->add({family, labels}, delta);
  }
  void gauge(const std::string& family, const std::string& labels, double value) {
    if (board) board->set({family, labels}, value);
  }
  int live(std::string loop);
};

void HostAgent::Impl::startSession(VcSession& s, const char* instance) {
  s.instance = instance;
  s.config->urlIs(o.vcenterUrl);
  s.config->usernameIs(o.vcenterUser);
  s.config->passwordIs(settings.vcenterPassword);
  s.config->connectTimeoutIs(o.connectTimeout);
  s.config->replyTimeoutIs(o.replyTimeout);
  s.config->maxReplyBytesIs(static_cast<uint64_t>(o.maxReplyMb * (1 << 20)));
  s.config->caFileIs(o.caFile);
  // A failed call on a live session is the agent's to answer: it sees the
  // loop return and decides, rather than the library ending the process.
  s.sm = harbecSmFactory(s.soapStatus, s.sessionStatus, instance, s.config, vi, false);
  s.relay = SoapRelay::create(s.sm, &served);
  s.thread = soapThreadFactory(s.relay);
}

void HostAgent::Impl::start() {
  // The library puts this action back for SIGPIPE when it lets a counters
  // descriptor go: the agent ignores the signal throughout.
  currentAction = {};
  currentAction.sa_handler = SIG_IGN;
  Kel::logSinkIs([this](const Kel::LogHandle& h, const Kel::String8& text) {
    std::string line = clock() + " " + h.id().str() + ": " + text.str();
    // A failure's own words go with the lines that only name it.
    if (h.id() == "HARBEC_RPC_FAULT" || h.id() == "HARBEC_CONNECT_FAILED") line += " (" + latestWords() + ")";
    if (!o.quiet || h.id() == "HARBEC_RPC_FAULT") say(line);
  });
  startSession(update, "UpdateThread");
  startSession(requests, "RequestThread");
  if (o.vsmUrl.empty()) return;
  vs = vSFactory("vs");
  restStatus = restStatusFactory("restStatus");
  vsSessionStatus = sessionStatusFactory("vsSessionStatus");
  vsConfig = vsConfigFactory("vsConfig");
  vsConfig->urlIs(o.vsmUrl);
  vsConfig->usernameIs(o.vsmUser);
  vsConfig->passwordIs(settings.vsmPassword);
  vsConfig->connectTimeoutIs(o.connectTimeout);
  vsConfig->replyTimeoutIs(o.vsmTimeout);
  vsConfig->maxReplyBytesIs(static_cast<uint64_t>(o.vsmMaxReplyMb * (1 << 20)));
  vsConfig->caFileIs(o.vsmCaFile);
  vsConfig->proxyIs(o.vsmProxy == "env" ? "" : o.vsmProxy);
  vsm = vmwareVsSmFactory(restStatus, vsSessionStatus, vsConfig, vs, false);
  restRelay = RestRelay::create(vsm, &served);
  restThread = restThreadFactory(restRelay);
}

bool HostAgent::Impl::connect(VcSession& s, std::string* error) {
  double deadline = o.retryFor > 0 ? now() + o.retryFor : INFINITY;
  for (unsigned attempt = 1;; ++attempt) {
    count("harbec_connect_attempts_total");
    std::string name = post(s, connectRequestFactory(fresh("connect")));
    if (!served.wait(name, kRequestTimeout)) {
      *error = "vCenter at " + o.vcenterUrl + " did not answer the login";
      return false;
    }
    {
      Kel::ActivityLockAnchor lock;
      if (s.sessionStatus->sessionState() == sessionConnected) return true;
    }
    SoapFailure failure = lastFailure(s);
    if (failure.reason.empty()) failure.reason = "nothing recorded";
    if (failure.refusedLogin) {
      *error = "vCenter at " + o.vcenterUrl + " refused the login of " + o.vcenterUser;
      return false;
    }
    double delay = backoffDelay(attempt);
    if (now() + delay > deadline) {
      *error = "cannot connect to vCenter at " + o.vcenterUrl + ": " + failure.reason;
      return false;
    }
    say(clock() + " vCenter not reachable (" + failure.reason + "); attempt " + std::to_string(attempt + 1) + " in " +
        std::to_string(static_cast<int>(delay)) + " s");
    std::this_thread::sleep_for(std::chrono::duration<double>(delay));
  }
}

bool HostAgent::Impl::waitForSync(const std::string& loop, SyncProgress& progress, std::string* error) {
  double deadline = now() + kSyncTimeout;
  while (now() < deadline) {
    {
      Kel::ActivityLockAnchor lock;
      if (vi->initialWaitForUpdate()) {
        progress.done();
        return true;
      }
    }
    progress.look();
    if (served.has(loop)) {
      {
        Kel::ActivityLockAnchor lock;
        if (update.soapStatus->failureCount() == 0) return true;  // a loop that returned without a failure
      }
      *error = "the update loop failed: " + lastFailure(update).reason;
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  *error = "no inventory from vCenter in " + std::to_string(int(kSyncTimeout)) + " s";
  return false;
}

void HostAgent::Impl::addInterfaces() {
  Kel::ActivityLockAnchor lock;
  for (const std::string& n : o.interfaces) vi->intfToEsxMapIs(n);
}

// Without interface names, every interface that a host NIC's neighbour
// data names for this switch is taken. True when one was added.
bool HostAgent::Impl::discoverInterfaces() {
  if (!o.interfaces.empty() || o.bridgeMac.empty()) return false;
  Kel::ActivityLockAnchor lock;
  bool added = false;
  for (auto h = vi->esxHostIteratorConst(); h; ++h)
    for (auto p = h.value()->pnicIteratorConst(); p; ++p) {
      const Pnic& nic = *p.value();
      if (nic.peerDevId().str() != o.bridgeMac || nic.peerIntf().empty() || vi->intfToEsxMap(nic.peerIntf())) continue;
      vi->intfToEsxMapIs(nic.peerIntf());
      added = true;
    }
  return added;
}

std::vector<std::string> HostAgent::Impl::postHints() {
  if (o.bridgeMac.empty()) return {};
  UpdateHostNwInfoRequest::Ptr r = updateHostNwInfoRequestFactory(fresh("hints"));
  r->bridgeMacAddrIs(o.bridgeMac);
  r->queryAllHostsIs(true);
  return {post(requests, r)};
}

// Counters of the DV ports behind the interfaces: the uplinks and the
// machines' NICs, one request per switch. Ports of standard switches have
// no counters here.
std::vector<std::string> HostAgent::Impl::postCounters() {
  std::vector<std::string> names;
  if (!countersWanted) return names;
  Snapshot s = snapshot();
  SwitchView view = switchView(s);
  {
    Kel::ActivityLockAnchor lock;
    portAsked = portAsks(view, *vi);
  }
  for (PortAsk& ask : portAsked)
    if (FetchDvPortRequest::Ptr r = portRequest(ask, fresh("counters"))) names.push_back(post(requests, r));
  return names;
}

// The answers of the counters posted last; then whether they failed.
void HostAgent::Impl::takeCounters() {
  for (const PortAsk& ask : portAsked)
    if (!ask.request.empty()) takeAnswer(vi, ask);
  portAsked.clear();
  checkCounters();
}

// One round of the vCenter requests the agent repeats: neighbour hints, a
// probe of the connection, port counters.
std::vector<std::string> HostAgent::Impl::postRound(bool firstRound) {
  {
    Kel::ActivityLockAnchor lock;
    failuresBeforeRound = requests.soapStatus->failureCount();
  }
  std::vector<std::string> names = postHints();
  names.push_back(post(requests, connectionStatusRequestFactory(fresh("probe"))));
  if (!firstRound)
    for (const std::string& c : postCounters()) names.push_back(c);
  return names;
}

// The vShield Manager's round goes on its own: its heartbeat, and once that
// has found it connected, its data. A manager that hangs holds only this.
void HostAgent::Impl::vsmRound() {
  if (!restThread || !vsmServed()) return;
  bool connected;
  {
    Kel::ActivityLockAnchor lock;
    connected = vsSessionStatus->sessionState() == sessionConnected;
  }
  if (vsmStep == VsmStep::heartbeat && connected) {
    BatchedRestRequest::Ptr batch = batchedRestRequestFactory(fresh("vshieldData"), vsBatch, httpGET);
    for (const VsEndpoint& e : kVsData) {
      RestRequest::Ptr r = restRequestFactory(Kel::Name(e.name), e.type, httpGET);
      r->endPointIs(e.path);
      if (e.type == vsVxlanSegment) {
        r->optionalArgIs("pagesize", "1024");
        r->optionalArgIs("startindex", "0");
      }
      batch->restRequestIs(r);
    }
    vsmPending = postRest(batch);
    vsmStep = VsmStep::data;
    return;
  }
  if (vsmStep != VsmStep::idle) {
    vsmStep = VsmStep::idle;
    vsmNext = now() + o.pollEvery;
  }
  if (now() < vsmNext) return;
  RestRequest::Ptr hb = restRequestFactory(fresh(kHeartbeat.name), kHeartbeat.type, httpGET);
  hb->endPointIs(kHeartbeat.path);
  vsmPending = postRest(hb);
  vsmStep = VsmStep::heartbeat;
}

// Until the vShield round has ended, or `seconds` have passed.
void HostAgent::Impl::awaitVsmRound(double seconds) {
  for (double until = now() + seconds; restThread && now() < until; std::this_thread::sleep_for(std::chrono::milliseconds(20))) {
    vsmRound();
    if (vsmStep == VsmStep::idle) return;
  }
}

void HostAgent::Impl::checkCounters() {
  {
    Kel::ActivityLockAnchor lock;
    if (requests.soapStatus->failureCount() == failuresBeforeRound) return;
  }
  SoapFailure failure = lastFailure(requests);
  if (!countersWanted || failure.call != "FetchDVPorts") return;
  countersWanted = false;
  say(clock() + " port counters are not available from this vCenter (" + failure.reason + "); no more asked");
}

Snapshot HostAgent::Impl::snapshot() {
  Snapshot s;
  {
    Kel::ActivityLockAnchor lock;
    s = takeSnapshot(*vi, vs.ptr());
  }
  for (InterfaceInfo& intf : s.interfaces) {
    auto configured = o.configuredVlans.find(intf.name);
    if (configured == o.configuredVlans.end()) continue;
    intf.configured = true;
    intf.configuredVlans = configured->second;
  }
  return s;
}

std::string HostAgent::Impl::vshieldState() {
  Kel::ActivityLockAnchor lock;
  std::string warning = restStatus->lastReplyWarning().str();
  if (vsSessionStatus->sessionState() == sessionConnected)
    return warning.empty() ? "connected" : "connected; last reply: " + warning;
  std::string reason = restStatus->lastFailureDetail().str();
  if (reason.empty() && restStatus->lastFailureReason().length()) reason = "HTTP " + restStatus->lastFailureReason().str();
  return reason.empty() ? "not connected" : "not connected (" + reason + ")";
}

void HostAgent::Impl::print(const Snapshot& s) {
  publish(s, {});
  if (o.json) {
    out << renderJson(s, o.once) << (o.once ? "" : "\n") << std::flush;
    return;
  }
  out << "vCenter " << o.vcenterUrl << ": " << s.hosts.size() << " hosts, " << s.vms.size() << " VMs";
  if (vsm) out << "; vShield Manager " << o.vsmUrl << ": " << vshieldState();
  out << "\n\n" << renderText(s) << std::flush;
}

int HostAgent::Impl::live(std::string loop) {
  Snapshot last = snapshot();
  std::vector<std::string> round;
  double nextRound = now() + o.pollEvery;
  for (;;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    if (served.has(loop)) {
      SoapFailure failure = lastFailure(update);
      if (!failure.tryAgain) {
        say("harbec-agent: lost vCenter at " + o.vcenterUrl + ": " + failure.reason);
        return 1;
      }
      loop = post(update, [&] {
        CheckForUpdatesRequest::Ptr r = checkForUpdatesRequestFactory(fresh("updates"));
        r->blockIs(true);
        return r;
      }());
    }
    bool roundDone = true;
    for (const std::string& n : round) roundDone = roundDone && served.has(n);
    if (roundDone && !round.empty()) {
      round.clear();
      takeCounters();
    }
    if (roundDone && now() >= nextRound) {
      if (discoverInterfaces()) postHints();
      round = postRound(false);
      nextRound = now() + o.pollEvery;
    }
    vsmRound();
    Snapshot s = snapshot();
    std::vector<std::string> changes;
    if (board || !o.json) changes = describeChanges(last, s);
    if (o.json) {
      std::string a = renderJson(last, false), b = renderJson(s, false);
      if (a != b) out << b << "\n" << std::flush;
    } else {
      for (const std::string& line : changes) out << clock() << " " << line << "\n" << std::flush;
    }
    publish(s, changes);
    watchdogPing();
    last = std::move(s);
  }
}

// What the HTTP interface shows: the view, its changes, and the figures
// that come with each look at the trees.
void HostAgent::Impl::publish(const Snapshot& s, const std::vector<std::string>& changes) {
  if (!board) return;
  board->viewIs(renderJson(s, false));
  board->changed(changes);
  count("harbec_view_changes_total", "", static_cast<double>(changes.size()));
  size_t pnics = 0, vnics = 0;
  for (const HostInfo& h : s.hosts) pnics += h.pnics.size();
  for (const VmInfo& vm : s.vms) vnics += vm.nics.size();
  const std::pair<const char*, size_t> kinds[] = {{"interface", s.interfaces.size()}, {"host", s.hosts.size()},
                                                  {"pnic", pnics}, {"vm", s.vms.size()}, {"vnic", vnics},
                                                  {"segment", s.segments.size()}};
  for (const auto& [kind, n] : kinds) gauge("harbec_objects", std::string("kind=\"") + kind + "\"", double(n));
  Kel::ActivityLockAnchor lock;
  gauge("harbec_peer_up", "peer=\"vcenter\"", update.sessionStatus->sessionState() == sessionConnected);
  if (vsSessionStatus)
    gauge("harbec_peer_up", "peer=\"vshield\"", vsSessionStatus->sessionState() == sessionConnected);
}

// Every request carried out counts, by its kind: its name up to the serial.
void HostAgent::Impl::observeExchanges() {
  if (!board) return;
  gauge("harbec_up", "", 1);
  gauge("harbec_view_ready", "", 0);
  gauge("harbec_restarts_total", "", workRestarts());
  served.observer = [this](const char* peer, const std::string& name, bool ok) {
    std::string kind = name.substr(0, name.rfind('-'));
    count("harbec_exchanges_total", std::string("peer=\"") + peer + "\",kind=\"" + kind + "\",result=\"" +
                                        (ok ? "ok" : "failed") + "\"");
    if (ok) gauge("harbec_last_good_exchange_timestamp_seconds", std::string("peer=\"") + peer + "\"", double(std::time(nullptr)));
  };
}

HostAgent::HostAgent(Settings settings, std::ostream& out, std::ostream& err)
    : impl_(new Impl(std::move(settings), out, err)) {}

// The sessions and their threads live to the end of the process (see the
// header), and so does what they write to.
HostAgent::~HostAgent() = default;

int HostAgent::run() {
  Impl& a = *impl_;
  a.board = board;
  a.observeExchanges();
  a.start();
  if (a.o.bridgeMac.empty()) a.say("harbec-agent: without --bridge-mac no interface can be tied to a host");
  std::string error;
  if (!a.connect(a.update, &error) || !a.connect(a.requests, &error)) {
    a.say("harbec-agent: " + error);
    return 1;
  }
  SyncProgress progress([&a](const std::string& line) { a.say(clock() + " " + line); },
                        [&a](double objects) { a.gauge("harbec_sync_objects", "", objects); });
  CheckForUpdatesRequest::Ptr wait = checkForUpdatesRequestFactory(a.fresh("updates"));
  wait->blockIs(true);
  std::string loop = a.post(a.update, wait);
  if (!a.waitForSync(loop, progress, &error)) {
    a.say("harbec-agent: " + error);
    return 1;
  }
  a.gauge("harbec_first_sync_seconds", "", now() - a.startedAt);
  if (afterFirstSync) afterFirstSync(a.snapshot());

  a.addInterfaces();
  a.vsmRound();
  std::vector<std::string> names = a.postRound(true);
  for (const std::string& n : names) a.served.wait(n, kRequestTimeout);
  if (a.discoverInterfaces())
    for (const std::string& n : a.postHints()) a.served.wait(n, kRequestTimeout);
  // Counters once the interfaces have their hosts.
  for (const std::string& n : a.postCounters()) a.served.wait(n, kRequestTimeout);
  a.takeCounters();

  // --once waits for vShield Manager's answer, or its time-outs; the live
  // view shows it when it comes.
  a.awaitVsmRound(a.o.once ? 3 * (a.o.connectTimeout + a.o.vsmTimeout) : 2);
  if (beforeFirstView) beforeFirstView();
  a.print(a.snapshot());
  a.gauge("harbec_view_ready", "", 1);
  if (afterFirstView) afterFirstView();
  if (a.o.once) return 0;
  return a.live(loop);
}

}  // namespace HarbecAgent
