// The vim25 stubs against vCenter's wire format. Replies as vCenter writes
// them (tests/data/vim25) go through the generated receive functions on an
// in-memory stream; requests go through the generated send functions into a
// string and are compared with VMware's element names and order.
#include <gtest/gtest.h>
#include <malloc.h>

#include <soapH.h>

#include "vim25/SoapArena.h"

#include <cctype>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string dataFile(const std::string& name) {
  std::string path = __FILE__;
  path.erase(path.find_last_of('/') + 1);
  std::ifstream in(path + "data/vim25/" + name);
  EXPECT_TRUE(in.is_open()) << name;
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Start tags of a document, in order, as written ("ns2:_this").
std::vector<std::string> startTags(const std::string& xml) {
  std::vector<std::string> tags;
  for (size_t at = xml.find('<'); at != std::string::npos; at = xml.find('<', at + 1)) {
    size_t end = at + 1;
    while (end < xml.size() && (std::isalnum(static_cast<unsigned char>(xml[end])) || std::strchr("_:.-", xml[end])))
      ++end;
    if (end > at + 1) tags.push_back(xml.substr(at + 1, end - at - 1));
  }
  return tags;
}

template <class T>
T* as(xsd__anyType* val) {
  return dynamic_cast<T*>(val);
}

// What an optional field holds; a missing one fails and reads as T().
template <class T>
T value(const T* field) {
  if (field) return *field;
  ADD_FAILURE() << "optional field missing";
  return T();
}

ns2__PropertyChange* change(const ns2__ObjectUpdate* update, const std::string& name) {
  for (ns2__PropertyChange* c : update->changeSet)
    if (c->name == name) return c;
  ADD_FAILURE() << "no change " << name;
  return nullptr;
}

// One soap context per test, in the modes the session uses, with its arena.
class Vim25 : public ::testing::Test {
 protected:
  void SetUp() override {
    soap = soap_new1(SOAP_C_UTFSTRING);
    arena.attach(soap);
  }
  void TearDown() override {
    soap_destroy(soap);
    soap_end(soap);
    arena.rewind();
    soap_free(soap);
  }

  // The next receive reads this text instead of the network.
  void reply(const std::string& text) {
    input.str(text);
    input.clear();
    soap->is = &input;
  }

  // What a send function writes, HTTP head and envelope, with no connection.
  template <class Send>
  std::string sent(Send send) {
    std::ostringstream out;
    soap->os = &out;
    soap->fopen = [](struct soap*, const char*, const char*, int) -> SOAP_SOCKET { return 1000; };
    soap->fclose = [](struct soap*) { return SOAP_OK; };
    EXPECT_EQ(SOAP_OK, send("https://vcenter.example.net/sdk"));
    soap->os = nullptr;
    soap->socket = SOAP_INVALID_SOCKET;
    return out.str();
  }

  // The body of a sent request, from the method element on.
  std::vector<std::string> sentBodyTags(const std::string& text) {
    std::vector<std::string> tags = startTags(text.substr(text.find("<SOAP-ENV:Body>")));
    tags.erase(tags.begin());
    return tags;
  }

  ns2__UpdateSet* waitForUpdates(const std::string& file) {
    reply(dataFile(file));
    _ns2__WaitForUpdatesResponse response;
    EXPECT_EQ(SOAP_OK, soap_recv___ns2__WaitForUpdates(soap, response));
    EXPECT_NE(nullptr, response.returnval);
    return response.returnval;
  }

  // A reference owned by the context.
  ns2__ManagedObjectReference* ref(const std::string& type, const std::string& value) {
    ns2__ManagedObjectReference* mor = soap_new_ns2__ManagedObjectReference(soap);
    mor->type = soap_new_std__string(soap);
    *mor->type = type;
    mor->__item = value;
    return mor;
  }

  ::Vim25::SoapArena arena;
  struct soap* soap = nullptr;
  std::istringstream input;
};

// Replies as vCenter writes them.
class Vim25Reply : public Vim25 {};
// What vCenter sends that vim25.h does not know.
class Vim25Unknown : public Vim25 {};
// Requests, against VMware's element names and order.
class Vim25Request : public Vim25 {};

// What a real vCenter sends of a host: bridges and backings by class,
// optional values left out, VMkernel NICs on a distributed port.
TEST_F(Vim25Reply, HostNetwork) {
  ns2__UpdateSet* set = waitForUpdates("wait-for-updates-host.xml");
  ASSERT_NE(nullptr, set);
  auto* network = as<ns2__HostNetworkInfo>(change(set->filterSet[0]->objectSet[0], "config.network")->val);
  ASSERT_NE(nullptr, network);
  auto* bond = dynamic_cast<ns2__HostVirtualSwitchBondBridge*>(network->vswitch.at(0)->spec->bridge);
  ASSERT_NE(nullptr, bond);
  EXPECT_EQ((std::vector<std::string>{"vmnic0", "vmnic2"}), bond->nicDevice);
  auto* backing =
      dynamic_cast<ns2__DistributedVirtualSwitchHostMemberPnicBacking*>(network->proxySwitch.at(0)->spec->backing);
  ASSERT_NE(nullptr, backing);
  EXPECT_EQ("16", value(backing->pnicSpec.at(0)->uplinkPortKey));
  EXPECT_EQ(nullptr, network->pnic.at(1)->linkSpeed);
  EXPECT_EQ(nullptr, network->vnic.at(0)->spec->distributedVirtualPort);
  EXPECT_EQ("34", value(network->vnic.at(1)->spec->distributedVirtualPort->portKey));
}

TEST_F(Vim25Reply, VirtualMachinesAndPortGroups) {
  ns2__UpdateSet* set = waitForUpdates("wait-for-updates-vm.xml");
  ASSERT_NE(nullptr, set);
  const std::vector<ns2__ObjectUpdate*>& objects = set->filterSet.at(0)->objectSet;
  ASSERT_EQ(7u, objects.size());
  ns2__ObjectUpdate* vm = objects[4];
  auto* hardware = as<ns2__VirtualHardware>(change(vm, "config.hardware")->val);
  ASSERT_NE(nullptr, hardware);
  // The PCI controller's own <device> children are not devices of the machine.
  const long expected[] = {
      SOAP_TYPE_ns2__VirtualDevice,  SOAP_TYPE_ns2__VirtualDevice,         SOAP_TYPE_ns2__VirtualE1000,
      SOAP_TYPE_ns2__VirtualVmxnet3, SOAP_TYPE_ns2__VirtualVmxnet3Vrdma,   SOAP_TYPE_ns2__VirtualSriovEthernetCard,
      SOAP_TYPE_ns2__VirtualE1000e,  SOAP_TYPE_ns2__VirtualPCNet32,        SOAP_TYPE_ns2__VirtualVmxnet2,
      SOAP_TYPE_ns2__VirtualDevice};
  ASSERT_EQ(std::size(expected), hardware->device.size());
  std::vector<ns2__VirtualEthernetCard*> cards;
  for (size_t i = 0; i < hardware->device.size(); ++i) {
    EXPECT_EQ(expected[i], hardware->device[i]->soap_type()) << i;
    if (auto* card = dynamic_cast<ns2__VirtualEthernetCard*>(hardware->device[i])) cards.push_back(card);
  }
  auto* dvPort = dynamic_cast<ns2__VirtualEthernetCardDistributedVirtualPortBackingInfo*>(cards.at(1)->backing);
  ASSERT_NE(nullptr, dvPort);
  EXPECT_EQ("dvportgroup-20 17", value(dvPort->port->portgroupKey) + " " + value(dvPort->port->portKey));
  EXPECT_EQ(SOAP_TYPE_ns2__VirtualEthernetCardOpaqueNetworkBackingInfo, cards.at(4)->backing->soap_type());
  EXPECT_EQ(nullptr, cards.at(5)->backing);
  EXPECT_EQ(SOAP_TYPE_ns2__FaultToleranceSecondaryConfigInfo,
            change(objects[5], "config.ftInfo")->val->soap_type());
  EXPECT_EQ(nullptr, change(objects[5], "config.hardware")->val);
  EXPECT_EQ(ns2__ObjectUpdateKind__leave, objects[6]->kind);

  auto vlanOf = [&](size_t i) {
    auto* pg = as<ns2__DVPortgroupConfigInfo>(change(objects[i], "config")->val);
    return dynamic_cast<ns2__VMwareDVSPortSetting*>(pg->defaultPortConfig)->vlan;
  };
  auto* trunk = dynamic_cast<ns2__VmwareDistributedVirtualSwitchTrunkVlanSpec*>(vlanOf(1));
  ASSERT_NE(nullptr, trunk);
  EXPECT_EQ(4094, trunk->vlanId.at(1)->end);
  EXPECT_EQ(120, dynamic_cast<ns2__VmwareDistributedVirtualSwitchVlanIdSpec*>(vlanOf(2))->vlanId);
  EXPECT_EQ(SOAP_TYPE_ns2__VmwareDistributedVirtualSwitchPvlanSpec, vlanOf(3)->soap_type());
}

TEST_F(Vim25Reply, DvPortsAndNetworkHints) {
  reply(dataFile("fetch-dvports.xml"));
  _ns2__FetchDVPortsResponse ports;
  ASSERT_EQ(SOAP_OK, soap_recv___ns2__FetchDVPorts(soap, ports));
  ASSERT_EQ(3u, ports.returnval.size());
  ns2__DistributedVirtualPort* uplink = ports.returnval[0];
  // Each counter has its own value in the reply, so a misnamed one shows;
  // bytesInUnicast needs all 64 bits.
  const ns2__DistributedVirtualSwitchPortStatistics* s = uplink->state->stats;
  const LONG64 counters[] = {s->packetsInMulticast,  s->packetsOutMulticast, s->bytesInMulticast,
                             s->bytesOutMulticast,   s->packetsInUnicast,    s->packetsOutUnicast,
                             s->bytesInUnicast,      s->bytesOutUnicast,     s->packetsInBroadcast,
                             s->packetsOutBroadcast, s->bytesInBroadcast,    s->bytesOutBroadcast,
                             s->packetsInDropped,    s->packetsOutDropped,   s->packetsInException,
                             s->packetsOutException};
  for (int i = 0; i < 16; ++i) EXPECT_EQ(i == 6 ? (LONG64{1} << 33) + 7 : i + 1, counters[i]) << i;
  EXPECT_EQ(nullptr, ports.returnval[1]->state->runtimeInfo->mtu);
  EXPECT_EQ(nullptr, ports.returnval[2]->connectee);
  EXPECT_EQ(nullptr, ports.returnval[2]->config->setting->blocked);

  reply(dataFile("query-network-hint.xml"));
  _ns2__QueryNetworkHintResponse hints;
  ASSERT_EQ(SOAP_OK, soap_recv___ns2__QueryNetworkHint(soap, hints));
  ASSERT_EQ(3u, hints.returnval.size());
  const auto* lldp = hints.returnval[1]->lldpInfo;
  EXPECT_EQ("leaf-01", as<xsd__string>(lldp->parameter.at(2)->value)->__item);
  // A number is no string: it stays a bare value with its text.
  EXPECT_STREQ("120", lldp->parameter.at(3)->value->__item);
  EXPECT_EQ(nullptr, hints.returnval[2]->lldpInfo);
}

TEST_F(Vim25Reply, NamespaceTableTakesOtherEnvelopeAndSchemaYears) {
  reply(R"(<?xml version="1.0" encoding="UTF-8"?>
<env:Envelope xmlns:env="http://www.w3.org/2003/05/soap-envelope" xmlns:xsd="http://www.w3.org/1999/XMLSchema" xmlns:xsi="http://www.w3.org/1999/XMLSchema-instance">
<env:Body><CheckForUpdatesResponse xmlns="urn:vim25"><returnval><version>3</version><filterSet><filter type="PropertyFilter">f</filter><objectSet><kind>modify</kind><obj type="Datacenter">datacenter-2</obj>
<changeSet><name>name</name><op>assign</op><val xsi:type="xsd:string">DC1</val></changeSet></objectSet></filterSet></returnval></CheckForUpdatesResponse></env:Body></env:Envelope>)");
  _ns2__CheckForUpdatesResponse response;
  ASSERT_EQ(SOAP_OK, soap_recv___ns2__CheckForUpdates(soap, response));
  EXPECT_EQ("DC1", as<xsd__string>(change(response.returnval->filterSet[0]->objectSet[0], "name")->val)->__item);
}

// Records made in the arena are destroyed at its rewind, the newest first
// and each once: the heap their strings took is all given back, round
// after round, and the blocks beyond the first go too.
TEST_F(Vim25, ArenaDestroysItsRecordsAtRewind) {
  if (!::Vim25::arenaOf(soap)) GTEST_SKIP() << "sanitizer builds read without the arena";
  const size_t heapBefore = mallinfo2().uordblks;
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 20000; ++i) {
      ns2__HostPciDevice* d = soap_new_ns2__HostPciDevice(soap);
      ASSERT_TRUE(::Vim25::arenaOf(soap)->holds(d));
      d->vendorName.assign(200, 'v');
      d->deviceName.assign(100 + i % 50, 'd');
    }
    EXPECT_GT(mallinfo2().uordblks, heapBefore + 20000 * 300);
    soap_destroy(soap);
    soap_end(soap);
    arena.rewind();
    EXPECT_LT(mallinfo2().uordblks, heapBefore + 64 * 1024) << "round " << round;
  }
}

// A small reply's objects and their records share the first block, which
// the rewind keeps: the replies of a running session map no memory.
TEST_F(Vim25, SmallReplyStaysInTheFirstBlock) {
  ::Vim25::SoapArena* inUse = ::Vim25::arenaOf(soap);
  if (!inUse) GTEST_SKIP() << "sanitizer builds read without the arena";
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 100; ++i) soap_new_ns2__HostPciDevice(soap);
    EXPECT_EQ(inUse->mapped(), 64u * 1024) << "round " << round;
    soap_destroy(soap);
    soap_end(soap);
    arena.rewind();
  }
}

// A request in VMware's element names and order, with the xsi:type that
// tells the server a traversal from a selection.
TEST_F(Vim25Request, ElementsInVmwaresOrder) {
  bool no = false;
  ns2__PropertySpec hostProps;
  hostProps.type = "HostSystem";
  hostProps.all = &no;
  hostProps.pathSet = {"name", "config.network"};
  std::string dcName = "dcHostTravSpec", folderName = "folderTravSpec";
  ns2__SelectionSpec toDc;
  toDc.name = &dcName;
  ns2__TraversalSpec folder;
  folder.name = &folderName;
  folder.type = "Folder";
  folder.path = "childEntity";
  folder.skip = &no;
  folder.selectSet = {&toDc};
  ns2__ObjectSpec root;
  root.obj = ref("Folder", "group-d1");
  root.skip = &no;
  root.selectSet = {&folder};
  ns2__PropertyFilterSpec spec;
  spec.propSet = {&hostProps};
  spec.objectSet = {&root};
  ns2__CreateFilterRequestType filter;
  filter._USCOREthis = ref("PropertyCollector", "propertyCollector");
  filter.spec = &spec;
  filter.partialUpdates = false;
  std::string text = sent([&](const char* url) { return soap_send___ns2__CreateFilter(soap, url, nullptr, &filter); });
  EXPECT_NE(std::string::npos, text.find("SOAPAction: \"urn:vim25/5.5\""));
  EXPECT_EQ((std::vector<std::string>{"ns2:CreateFilter", "ns2:_this", "ns2:spec", "ns2:propSet", "ns2:type",
                                      "ns2:all", "ns2:pathSet", "ns2:pathSet", "ns2:objectSet", "ns2:obj",
                                      "ns2:skip", "ns2:selectSet", "ns2:name", "ns2:type", "ns2:path", "ns2:skip",
                                      "ns2:selectSet", "ns2:name", "ns2:partialUpdates"}),
            sentBodyTags(text));
  // The server learns the traversal's class from xsi:type; a bare selection
  // by name carries none.
  EXPECT_NE(std::string::npos, text.find("<ns2:selectSet xsi:type=\"ns2:TraversalSpec\"><ns2:name>folderTravSpec"));
  EXPECT_NE(std::string::npos, text.find("<ns2:selectSet><ns2:name>dcHostTravSpec</ns2:name></ns2:selectSet>"));
}

}  // namespace
