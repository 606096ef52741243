/* vim25.h: the part of VMware's vim25 API that Harbec speaks, written as a
 * gSOAP interface header. soapcpp2 turns it into the client stubs
 * (soap_call___ns2__X) and the ns2__X records at build time; see
 * CMakeLists.txt next to it.
 *
 * Rules this file keeps:
 *  - Element names and their order inside each type are VMware's. Fields
 *    nobody reads or sends are left out; the reader skips their elements.
 *  - Every type derives as in VMware's schema, and all of them from
 *    xsd__anyType, so that a pointer field of a base class takes any
 *    derived class by its xsi:type. Fields of class type are pointers for
 *    that reason, lists are vectors of pointers.
 *  - Where Harbec tells classes apart (by cast or by soap_type()), every
 *    derived class that vCenter 7.0 knows is declared, even without fields.
 *  - A class vCenter sends that is not declared here is read as the class
 *    of the field it stands in: an unknown VirtualDevice in a device list
 *    arrives as ns2__VirtualDevice with its key alone, an
 *    unknown event as ns2__Event, an unknown property value as a plain
 *    xsd__anyType holding its first child or text in __item. Never build
 *    the stubs with -s or set SOAP_XML_STRICT: both would turn these cases
 *    into failed calls.
 *  - Optional elements are pointers; absent means NULL.
 */

//gsoap ns2 service name:          vim
//gsoap ns2 service type:          VimPortType
//gsoap ns2 service namespace:     urn:vim25
//gsoap ns2 service style:         document
//gsoap ns2 service encoding:      literal
//gsoap ns2 schema namespace:      urn:vim25
//gsoap ns2 schema elementForm:    qualified
//gsoap ns2 schema attributeForm:  unqualified

#import "stlvector.h"

/******************************************************************************
 * Base classes and simple values
 ******************************************************************************/

/// Root of every vim25 record. A value of a class this header does not know
/// ends up here: __item then holds its text, or its first child element as
/// raw XML. No record keeps its context (no `soap` member): nothing asks a
/// record for it, and a large inventory's first reply has a million records.
class xsd__anyType
{ public:
    _XML                                 __item;
};

/// A string as a property value (xsi:type="xsd:string"), e.g. "name".
class xsd__string : public xsd__anyType
{ public:
    std::string                          __item;
};

/// A managed object reference: the value is the object's id, `type` its
/// vCenter class ("HostSystem", "Folder", ...).
class ns2__ManagedObjectReference : public xsd__anyType
{ public:
    std::string                          __item;
   @std::string                         *type;
};

class ns2__DynamicData : public xsd__anyType
{ public:
};

class ns2__Description : public ns2__DynamicData
{ public:
    std::string                          label;
};

class ns2__ElementDescription : public ns2__Description
{ public:
    std::string                          key;
};

class ns2__KeyValue : public ns2__DynamicData
{ public:
    std::string                          key;
    std::string                          value;
};

class ns2__KeyAnyValue : public ns2__DynamicData
{ public:
    std::string                          key;
    xsd__anyType                        *value;
};

class ns2__NumericRange : public ns2__DynamicData
{ public:
    int                                  start;
    int                                  end;
};

class ns2__InheritablePolicy : public ns2__DynamicData
{ public:
    bool                                 inherited;
};

class ns2__BoolPolicy : public ns2__InheritablePolicy
{ public:
    bool                                *value;
};

/******************************************************************************
 * Enumerations, numbered in VMware's order. Unlike an unknown class, a value
 * outside an enumeration fails the reply, so only sets that have stayed
 * closed are enumerations here; open-ended ones are kept as strings.
 ******************************************************************************/

enum ns2__ObjectUpdateKind
{ ns2__ObjectUpdateKind__modify,
  ns2__ObjectUpdateKind__enter,
  ns2__ObjectUpdateKind__leave
};

enum ns2__PropertyChangeOp
{ ns2__PropertyChangeOp__add,
  ns2__PropertyChangeOp__remove,
  ns2__PropertyChangeOp__assign,
  ns2__PropertyChangeOp__indirectRemove
};

enum ns2__EventFilterSpecRecursionOption
{ ns2__EventFilterSpecRecursionOption__self,
  ns2__EventFilterSpecRecursionOption__children,
  ns2__EventFilterSpecRecursionOption__all
};

enum ns2__ManagedEntityStatus
{ ns2__ManagedEntityStatus__gray,
  ns2__ManagedEntityStatus__green,
  ns2__ManagedEntityStatus__yellow,
  ns2__ManagedEntityStatus__red
};

enum ns2__VirtualMachinePowerState
{ ns2__VirtualMachinePowerState__poweredOff,
  ns2__VirtualMachinePowerState__poweredOn,
  ns2__VirtualMachinePowerState__suspended
};

/// The power state as a property value ("runtime.powerState"); the trailing
/// underscore keeps the class apart from the enumeration, the XML type name
/// is VirtualMachinePowerState for both.
class ns2__VirtualMachinePowerState_ : public xsd__anyType
{ public:
    enum ns2__VirtualMachinePowerState   __item;
};

/******************************************************************************
 * Session
 ******************************************************************************/

class ns2__ServiceContent : public ns2__DynamicData
{ public:
    ns2__ManagedObjectReference         *rootFolder;
    ns2__ManagedObjectReference         *propertyCollector;
    ns2__ManagedObjectReference         *sessionManager;
    ns2__ManagedObjectReference         *alarmManager;
    ns2__ManagedObjectReference         *eventManager;
};

class ns2__UserSession : public ns2__DynamicData
{ public:
    std::string                          userName;
};

/******************************************************************************
 * Property collector: filters and updates
 ******************************************************************************/

class ns2__SelectionSpec : public ns2__DynamicData
{ public:
    std::string                         *name;
};

class ns2__TraversalSpec : public ns2__SelectionSpec
{ public:
    std::string                          type;
    std::string                          path;
    bool                                *skip;
    std::vector<ns2__SelectionSpec*>     selectSet;
};

class ns2__PropertySpec : public ns2__DynamicData
{ public:
    std::string                          type;
    bool                                *all;
    std::vector<std::string>             pathSet;
};

class ns2__ObjectSpec : public ns2__DynamicData
{ public:
    ns2__ManagedObjectReference         *obj;
    bool                                *skip;
    std::vector<ns2__SelectionSpec*>     selectSet;
};

class ns2__PropertyFilterSpec : public ns2__DynamicData
{ public:
    std::vector<ns2__PropertySpec*>      propSet;
    std::vector<ns2__ObjectSpec*>        objectSet;
};

class ns2__DynamicProperty : public xsd__anyType
{ public:
    std::string                          name;
    xsd__anyType                        *val;
};

class ns2__ObjectContent : public ns2__DynamicData
{ public:
    ns2__ManagedObjectReference         *obj;
    std::vector<ns2__DynamicProperty*>   propSet;
};

class ns2__PropertyChange : public ns2__DynamicData
{ public:
    std::string                          name;
    enum ns2__PropertyChangeOp           op;
    xsd__anyType                        *val;
};

class ns2__ObjectUpdate : public ns2__DynamicData
{ public:
    enum ns2__ObjectUpdateKind           kind;
    ns2__ManagedObjectReference         *obj;
    std::vector<ns2__PropertyChange*>    changeSet;
};

class ns2__PropertyFilterUpdate : public ns2__DynamicData
{ public:
    ns2__ManagedObjectReference         *filter;
    std::vector<ns2__ObjectUpdate*>      objectSet;
};

class ns2__UpdateSet : public ns2__DynamicData
{ public:
    std::string                          version;
    std::vector<ns2__PropertyFilterUpdate*> filterSet;
};

/******************************************************************************
 * Events
 ******************************************************************************/

class ns2__EventArgument : public ns2__DynamicData
{ public:
};

class ns2__EntityEventArgument : public ns2__EventArgument
{ public:
    std::string                          name;
};

class ns2__HostEventArgument : public ns2__EntityEventArgument
{ public:
    ns2__ManagedObjectReference         *host;
};

class ns2__VmEventArgument : public ns2__EntityEventArgument
{ public:
    ns2__ManagedObjectReference         *vm;
};

class ns2__Event : public ns2__DynamicData
{ public:
    time_t                               createdTime;
    ns2__HostEventArgument              *host;
    ns2__VmEventArgument                *vm;
};

class ns2__VmEvent : public ns2__Event
{ public:
};

class ns2__VmBeingHotMigratedEvent : public ns2__VmEvent
{ public:
    ns2__HostEventArgument              *destHost;
};

class ns2__VmMigratedEvent : public ns2__VmEvent
{ public:
};

/// Derives from VmMigratedEvent: a cast to ns2__VmMigratedEvent takes it,
/// a comparison of soap_type() does not.
class ns2__DrsVmMigratedEvent : public ns2__VmMigratedEvent
{ public:
};

class ns2__VmFailedMigrateEvent : public ns2__VmEvent
{ public:
};

class ns2__DvsEvent : public ns2__Event
{ public:
};

class ns2__DvsPortLinkUpEvent : public ns2__DvsEvent
{ public:
    std::string                          portKey;
};

class ns2__DvsPortLinkDownEvent : public ns2__DvsEvent
{ public:
    std::string                          portKey;
};

class ns2__DvsRenamedEvent : public ns2__DvsEvent
{ public:
};

class ns2__DvsDestroyedEvent : public ns2__DvsEvent
{ public:
};

/// An event page ("latestPage") as a property value.
class ns2__ArrayOfEvent : public xsd__anyType
{ public:
    std::vector<ns2__Event*>             Event;
};

class ns2__EventFilterSpecByEntity : public ns2__DynamicData
{ public:
    ns2__ManagedObjectReference         *entity;
    enum ns2__EventFilterSpecRecursionOption recursion;
};

class ns2__EventFilterSpecByTime : public ns2__DynamicData
{ public:
    time_t                              *beginTime;
    time_t                              *endTime;
};

class ns2__EventFilterSpec : public ns2__DynamicData
{ public:
    ns2__EventFilterSpecByEntity        *entity;
    ns2__EventFilterSpecByTime          *time;
    std::vector<std::string>             type;
};

/******************************************************************************
 * Alarms
 ******************************************************************************/

class ns2__AlarmExpression : public ns2__DynamicData
{ public:
};

class ns2__EventAlarmExpression : public ns2__AlarmExpression
{ public:
    std::string                          eventType;
    std::string                         *eventTypeId;
    std::string                         *objectType;
    enum ns2__ManagedEntityStatus       *status;
};

class ns2__AlarmAction : public ns2__DynamicData
{ public:
};

class ns2__GroupAlarmAction : public ns2__AlarmAction
{ public:
    std::vector<ns2__AlarmAction*>       action;
};

class ns2__AlarmSetting : public ns2__DynamicData
{ public:
    int                                  toleranceRange;
    int                                  reportingFrequency;
};

class ns2__AlarmSpec : public ns2__DynamicData
{ public:
    std::string                          name;
    std::string                         *systemName;
    std::string                          description;
    bool                                 enabled;
    ns2__AlarmExpression                *expression;
    ns2__AlarmAction                    *action;
    int                                 *actionFrequency;
    ns2__AlarmSetting                   *setting;
};

/******************************************************************************
 * Host hardware ("hardware")
 ******************************************************************************/

class ns2__HostSystemIdentificationInfo : public ns2__DynamicData
{ public:
    std::string                          identifierValue;
    ns2__ElementDescription             *identifierType;
};

class ns2__HostSystemInfo : public ns2__DynamicData
{ public:
    std::string                          vendor;
    std::string                          model;
    std::vector<ns2__HostSystemIdentificationInfo*> otherIdentifyingInfo;
};

class ns2__HostCpuInfo : public ns2__DynamicData
{ public:
    short                                numCpuPackages;
    short                                numCpuCores;
};

class ns2__HostCpuPackage : public ns2__DynamicData
{ public:
    std::string                          description;
};

class ns2__HostPciDevice : public ns2__DynamicData
{ public:
    std::string                          id;
    std::string                          vendorName;
    std::string                          deviceName;
};

class ns2__HostHardwareInfo : public ns2__DynamicData
{ public:
    ns2__HostSystemInfo                 *systemInfo;
    ns2__HostCpuInfo                    *cpuInfo;
    std::vector<ns2__HostCpuPackage*>    cpuPkg;
    std::vector<ns2__HostPciDevice*>     pciDevice;
};

/******************************************************************************
 * Host networking ("config.network")
 ******************************************************************************/

class ns2__HostVirtualSwitchBridge : public ns2__DynamicData
{ public:
};

class ns2__HostVirtualSwitchAutoBridge : public ns2__HostVirtualSwitchBridge
{ public:
};

class ns2__HostVirtualSwitchBondBridge : public ns2__HostVirtualSwitchBridge
{ public:
    std::vector<std::string>             nicDevice;
};

class ns2__HostVirtualSwitchSimpleBridge : public ns2__HostVirtualSwitchBridge
{ public:
};

class ns2__HostVirtualSwitchSpec : public ns2__DynamicData
{ public:
    ns2__HostVirtualSwitchBridge        *bridge;
};

class ns2__HostVirtualSwitch : public ns2__DynamicData
{ public:
    std::string                          name;
    std::string                          key;
    int                                 *mtu;
    ns2__HostVirtualSwitchSpec          *spec;
};

class ns2__DistributedVirtualSwitchHostMemberPnicSpec : public ns2__DynamicData
{ public:
    std::string                          pnicDevice;
    std::string                         *uplinkPortKey;
};

class ns2__DistributedVirtualSwitchHostMemberBacking : public ns2__DynamicData
{ public:
};

class ns2__DistributedVirtualSwitchHostMemberPnicBacking : public ns2__DistributedVirtualSwitchHostMemberBacking
{ public:
    std::vector<ns2__DistributedVirtualSwitchHostMemberPnicSpec*> pnicSpec;
};

class ns2__HostProxySwitchSpec : public ns2__DynamicData
{ public:
    ns2__DistributedVirtualSwitchHostMemberBacking *backing;
};

class ns2__HostProxySwitchHostLagConfig : public ns2__DynamicData
{ public:
    std::string                          lagKey;
    std::string                         *lagName;
    std::vector<ns2__KeyValue*>          uplinkPort;
};

class ns2__HostProxySwitch : public ns2__DynamicData
{ public:
    std::string                          dvsUuid;
    std::string                          dvsName;
    std::vector<ns2__KeyValue*>          uplinkPort;
    int                                 *mtu;
    ns2__HostProxySwitchSpec            *spec;
    std::vector<ns2__HostProxySwitchHostLagConfig*> hostLag;
};

class ns2__HostPortGroupSpec : public ns2__DynamicData
{ public:
    std::string                          name;
    int                                  vlanId;
};

class ns2__HostPortGroup : public ns2__DynamicData
{ public:
    std::string                         *key;
    std::string                         *vswitch;
    ns2__HostPortGroupSpec              *spec;
};

class ns2__PhysicalNicLinkInfo : public ns2__DynamicData
{ public:
    int                                  speedMb;
    bool                                 duplex;
};

class ns2__PhysicalNic : public ns2__DynamicData
{ public:
    std::string                          device;
    std::string                          pci;
    ns2__PhysicalNicLinkInfo            *linkSpeed;
    std::string                          mac;
};

class ns2__HostIpConfig : public ns2__DynamicData
{ public:
    std::string                         *ipAddress;
    std::string                         *subnetMask;
};

class ns2__DistributedVirtualSwitchPortConnection : public ns2__DynamicData
{ public:
    std::string                          switchUuid;
    std::string                         *portgroupKey;
    std::string                         *portKey;
};

class ns2__HostVirtualNicSpec : public ns2__DynamicData
{ public:
    ns2__HostIpConfig                   *ip;
    std::string                         *mac;
    ns2__DistributedVirtualSwitchPortConnection *distributedVirtualPort;
    int                                 *mtu;
};

class ns2__HostVirtualNic : public ns2__DynamicData
{ public:
    std::string                          device;
    std::string                          key;
    std::string                          portgroup;
    ns2__HostVirtualNicSpec             *spec;
};

class ns2__HostNetworkInfo : public ns2__DynamicData
{ public:
    std::vector<ns2__HostVirtualSwitch*> vswitch;
    std::vector<ns2__HostProxySwitch*>   proxySwitch;
    std::vector<ns2__HostPortGroup*>     portgroup;
    std::vector<ns2__PhysicalNic*>       pnic;
    std::vector<ns2__HostVirtualNic*>    vnic;
};

/******************************************************************************
 * Virtual machines ("config.hardware", "config.ftInfo")
 ******************************************************************************/

class ns2__VirtualDeviceBackingInfo : public ns2__DynamicData
{ public:
};

class ns2__VirtualDeviceDeviceBackingInfo : public ns2__VirtualDeviceBackingInfo
{ public:
    std::string                          deviceName;
};

/// Standard switch: deviceName is the network's name.
class ns2__VirtualEthernetCardNetworkBackingInfo : public ns2__VirtualDeviceDeviceBackingInfo
{ public:
};

class ns2__VirtualEthernetCardDistributedVirtualPortBackingInfo : public ns2__VirtualDeviceBackingInfo
{ public:
    ns2__DistributedVirtualSwitchPortConnection *port;
};

/// An opaque network (NSX): known by id and type, not by a port group.
class ns2__VirtualEthernetCardOpaqueNetworkBackingInfo : public ns2__VirtualDeviceBackingInfo
{ public:
    std::string                          opaqueNetworkId;
    std::string                          opaqueNetworkType;
};

/// The network of a machine from before port groups: deviceName names it.
class ns2__VirtualEthernetCardLegacyNetworkBackingInfo : public ns2__VirtualDeviceDeviceBackingInfo
{ public:
};

/// Only network cards are read: a machine has a dozen other devices (disks,
/// controllers, keyboard, video), whose label and backing, declared on the
/// base class, were most of what a large inventory's first reply made.
/// Declared on the card instead, they are skipped for every other device.
class ns2__VirtualDevice : public ns2__DynamicData
{ public:
    int                                  key;
};

class ns2__VirtualEthernetCard : public ns2__VirtualDevice
{ public:
    ns2__Description                    *deviceInfo;
    ns2__VirtualDeviceBackingInfo       *backing;
    std::string                         *macAddress;
};

class ns2__VirtualE1000 : public ns2__VirtualEthernetCard
{ public:
};

class ns2__VirtualE1000e : public ns2__VirtualEthernetCard
{ public:
};

class ns2__VirtualPCNet32 : public ns2__VirtualEthernetCard
{ public:
};

class ns2__VirtualSriovEthernetCard : public ns2__VirtualEthernetCard
{ public:
};

class ns2__VirtualVmxnet : public ns2__VirtualEthernetCard
{ public:
};

class ns2__VirtualVmxnet2 : public ns2__VirtualVmxnet
{ public:
};

class ns2__VirtualVmxnet3 : public ns2__VirtualVmxnet
{ public:
};

class ns2__VirtualVmxnet3Vrdma : public ns2__VirtualVmxnet3
{ public:
};

class ns2__VirtualHardware : public ns2__DynamicData
{ public:
    std::vector<ns2__VirtualDevice*>     device;
};

class ns2__FaultToleranceConfigInfo : public ns2__DynamicData
{ public:
};

class ns2__FaultTolerancePrimaryConfigInfo : public ns2__FaultToleranceConfigInfo
{ public:
};

class ns2__FaultToleranceSecondaryConfigInfo : public ns2__FaultToleranceConfigInfo
{ public:
};

/******************************************************************************
 * Distributed switches and ports
 ******************************************************************************/

class ns2__VmwareDistributedVirtualSwitchVlanSpec : public ns2__InheritablePolicy
{ public:
};

/// PVLAN: pvlanId is the port group's secondary VLAN; the switch's PVLAN
/// map gives its primary.
class ns2__VmwareDistributedVirtualSwitchPvlanSpec : public ns2__VmwareDistributedVirtualSwitchVlanSpec
{ public:
    int                                  pvlanId;
};

/// One entry of a switch's PVLAN map ("config.pvlanConfig"); pvlanType is
/// "promiscuous", "isolated" or "community".
class ns2__VMwareDVSPvlanMapEntry : public ns2__DynamicData
{ public:
    int                                  primaryVlanId;
    int                                  secondaryVlanId;
    std::string                          pvlanType;
};

class ns2__ArrayOfVMwareDVSPvlanMapEntry : public xsd__anyType
{ public:
    std::vector<ns2__VMwareDVSPvlanMapEntry*> VMwareDVSPvlanMapEntry;
};

/// Trunk: vlanId holds the allowed ranges.
class ns2__VmwareDistributedVirtualSwitchTrunkVlanSpec : public ns2__VmwareDistributedVirtualSwitchVlanSpec
{ public:
    std::vector<ns2__NumericRange*>      vlanId;
};

class ns2__VmwareDistributedVirtualSwitchVlanIdSpec : public ns2__VmwareDistributedVirtualSwitchVlanSpec
{ public:
    int                                  vlanId;
};

class ns2__DVPortSetting : public ns2__DynamicData
{ public:
    ns2__BoolPolicy                     *blocked;
};

class ns2__VMwareDVSPortSetting : public ns2__DVPortSetting
{ public:
    ns2__VmwareDistributedVirtualSwitchVlanSpec *vlan;
};

class ns2__DVPortgroupConfigInfo : public ns2__DynamicData
{ public:
    ns2__ManagedObjectReference         *distributedVirtualSwitch;
    ns2__DVPortSetting                  *defaultPortConfig;
};

class ns2__DVPortConfigSpec : public ns2__DynamicData
{ public:
    std::string                          operation;
    std::string                         *key;
    ns2__DVPortSetting                  *setting;
};

class ns2__DVPortConfigInfo : public ns2__DynamicData
{ public:
    ns2__DVPortSetting                  *setting;
};

class ns2__DistributedVirtualSwitchPortConnectee : public ns2__DynamicData
{ public:
    ns2__ManagedObjectReference         *connectedEntity;
    std::string                         *nicKey;
    std::string                         *type;
};

class ns2__DVPortStatus : public ns2__DynamicData
{ public:
    bool                                 linkUp;
    int                                 *mtu;
};

class ns2__DistributedVirtualSwitchPortStatistics : public ns2__DynamicData
{ public:
    LONG64                               packetsInMulticast;
    LONG64                               packetsOutMulticast;
    LONG64                               bytesInMulticast;
    LONG64                               bytesOutMulticast;
    LONG64                               packetsInUnicast;
    LONG64                               packetsOutUnicast;
    LONG64                               bytesInUnicast;
    LONG64                               bytesOutUnicast;
    LONG64                               packetsInBroadcast;
    LONG64                               packetsOutBroadcast;
    LONG64                               bytesInBroadcast;
    LONG64                               bytesOutBroadcast;
    LONG64                               packetsInDropped;
    LONG64                               packetsOutDropped;
    LONG64                               packetsInException;
    LONG64                               packetsOutException;
};

class ns2__DVPortState : public ns2__DynamicData
{ public:
    ns2__DVPortStatus                   *runtimeInfo;
    ns2__DistributedVirtualSwitchPortStatistics *stats;
};

class ns2__DistributedVirtualPort : public ns2__DynamicData
{ public:
    std::string                          key;
    ns2__DVPortConfigInfo               *config;
    ns2__ManagedObjectReference         *proxyHost;
    ns2__DistributedVirtualSwitchPortConnectee *connectee;
    ns2__DVPortState                    *state;
};

class ns2__DistributedVirtualSwitchPortCriteria : public ns2__DynamicData
{ public:
    bool                                *connected;
    std::vector<std::string>             portKey;
};

/******************************************************************************
 * Host network hints (CDP, LLDP)
 ******************************************************************************/

class ns2__PhysicalNicCdpInfo : public ns2__DynamicData
{ public:
    std::string                         *devId;
    std::string                         *portId;
    std::string                         *systemName;
    std::string                         *mgmtAddr;
};

/// parameter values are strings in practice ("System Name", "Management
/// Address"), typed as anything by the schema.
class ns2__LinkLayerDiscoveryProtocolInfo : public ns2__DynamicData
{ public:
    std::string                          chassisId;
    std::string                          portId;
    std::vector<ns2__KeyAnyValue*>       parameter;
};

class ns2__PhysicalNicHintInfo : public ns2__DynamicData
{ public:
    std::string                          device;
    ns2__PhysicalNicCdpInfo             *connectedSwitchPort;
    ns2__LinkLayerDiscoveryProtocolInfo *lldpInfo;
};

/******************************************************************************
 * Requests: `_this` (_USCOREthis) is the managed object the method runs on.
 ******************************************************************************/

class ns2__RetrieveServiceContentRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
};

class ns2__LoginRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    std::string                          userName;
    std::string                          password;
    std::string                         *locale;
};

class ns2__LogoutRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
};

class ns2__CurrentTimeRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
};

class ns2__CreateFilterRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    ns2__PropertyFilterSpec             *spec;
    bool                                 partialUpdates;
};

class ns2__RetrievePropertiesRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    std::vector<ns2__PropertyFilterSpec*> specSet;
};

class ns2__WaitForUpdatesRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    std::string                         *version;
};

class ns2__CheckForUpdatesRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    std::string                         *version;
};

class ns2__CreateCollectorForEventsRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    ns2__EventFilterSpec                *filter;
};

class ns2__SetCollectorPageSizeRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    int                                  maxCount;
};

class ns2__LogUserEventRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    ns2__ManagedObjectReference         *entity;
    std::string                          msg;
};

class ns2__CreateAlarmRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    ns2__ManagedObjectReference         *entity;
    ns2__AlarmSpec                      *spec;
};

class ns2__ReconfigureDVPortRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    std::vector<ns2__DVPortConfigSpec*>  port;
};

class ns2__FetchDVPortsRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    ns2__DistributedVirtualSwitchPortCriteria *criteria;
};

class ns2__RefreshDVPortStateRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    std::vector<std::string>             portKeys;
};

class ns2__QueryNetworkHintRequestType : public xsd__anyType
{ public:
    ns2__ManagedObjectReference         *_USCOREthis;
    std::vector<std::string>             device;
};

/******************************************************************************
 * Responses: the reply element of each method, the result in `returnval`.
 ******************************************************************************/

class _ns2__RetrieveServiceContentResponse
{ public:
    ns2__ServiceContent                 *returnval;
    struct soap                         *soap;
};

class _ns2__LoginResponse
{ public:
    ns2__UserSession                    *returnval;
    struct soap                         *soap;
};

class _ns2__LogoutResponse
{ public:
    struct soap                         *soap;
};

class _ns2__CurrentTimeResponse
{ public:
    time_t                               returnval;
    struct soap                         *soap;
};

class _ns2__CreateFilterResponse
{ public:
    ns2__ManagedObjectReference         *returnval;
    struct soap                         *soap;
};

class _ns2__RetrievePropertiesResponse
{ public:
    std::vector<ns2__ObjectContent*>     returnval;
    struct soap                         *soap;
};

class _ns2__WaitForUpdatesResponse
{ public:
    ns2__UpdateSet                      *returnval;
    struct soap                         *soap;
};

class _ns2__CheckForUpdatesResponse
{ public:
    ns2__UpdateSet                      *returnval;
    struct soap                         *soap;
};

class _ns2__CreateCollectorForEventsResponse
{ public:
    ns2__ManagedObjectReference         *returnval;
    struct soap                         *soap;
};

class _ns2__SetCollectorPageSizeResponse
{ public:
    struct soap                         *soap;
};

class _ns2__LogUserEventResponse
{ public:
    struct soap                         *soap;
};

class _ns2__CreateAlarmResponse
{ public:
    ns2__ManagedObjectReference         *returnval;
    struct soap                         *soap;
};

/// The returned Task is not waited for.
class _ns2__ReconfigureDVPort_USCORETaskResponse
{ public:
    ns2__ManagedObjectReference         *returnval;
    struct soap                         *soap;
};

class _ns2__FetchDVPortsResponse
{ public:
    std::vector<ns2__DistributedVirtualPort*> returnval;
    struct soap                         *soap;
};

class _ns2__RefreshDVPortStateResponse
{ public:
    struct soap                         *soap;
};

class _ns2__QueryNetworkHintResponse
{ public:
    std::vector<ns2__PhysicalNicHintInfo*> returnval;
    struct soap                         *soap;
};

/******************************************************************************
 * Methods. Each becomes soap_call___ns2__X(soap, endpoint, action, request,
 * response); a NULL action sends the SOAPAction below, the API version the
 * requests are written for.
 ******************************************************************************/

//gsoap ns2 service method-action: RetrieveServiceContent "urn:vim25/5.5"
int __ns2__RetrieveServiceContent(ns2__RetrieveServiceContentRequestType *ns2__RetrieveServiceContent, _ns2__RetrieveServiceContentResponse &ns2__RetrieveServiceContentResponse);

//gsoap ns2 service method-action: Login "urn:vim25/5.5"
int __ns2__Login(ns2__LoginRequestType *ns2__Login, _ns2__LoginResponse &ns2__LoginResponse);

//gsoap ns2 service method-action: Logout "urn:vim25/5.5"
int __ns2__Logout(ns2__LogoutRequestType *ns2__Logout, _ns2__LogoutResponse &ns2__LogoutResponse);

//gsoap ns2 service method-action: CurrentTime "urn:vim25/5.5"
int __ns2__CurrentTime(ns2__CurrentTimeRequestType *ns2__CurrentTime, _ns2__CurrentTimeResponse &ns2__CurrentTimeResponse);

//gsoap ns2 service method-action: CreateFilter "urn:vim25/5.5"
int __ns2__CreateFilter(ns2__CreateFilterRequestType *ns2__CreateFilter, _ns2__CreateFilterResponse &ns2__CreateFilterResponse);

//gsoap ns2 service method-action: RetrieveProperties "urn:vim25/5.5"
int __ns2__RetrieveProperties(ns2__RetrievePropertiesRequestType *ns2__RetrieveProperties, _ns2__RetrievePropertiesResponse &ns2__RetrievePropertiesResponse);

//gsoap ns2 service method-action: WaitForUpdates "urn:vim25/5.5"
int __ns2__WaitForUpdates(ns2__WaitForUpdatesRequestType *ns2__WaitForUpdates, _ns2__WaitForUpdatesResponse &ns2__WaitForUpdatesResponse);

//gsoap ns2 service method-action: CheckForUpdates "urn:vim25/5.5"
int __ns2__CheckForUpdates(ns2__CheckForUpdatesRequestType *ns2__CheckForUpdates, _ns2__CheckForUpdatesResponse &ns2__CheckForUpdatesResponse);

//gsoap ns2 service method-action: CreateCollectorForEvents "urn:vim25/5.5"
int __ns2__CreateCollectorForEvents(ns2__CreateCollectorForEventsRequestType *ns2__CreateCollectorForEvents, _ns2__CreateCollectorForEventsResponse &ns2__CreateCollectorForEventsResponse);

//gsoap ns2 service method-action: SetCollectorPageSize "urn:vim25/5.5"
int __ns2__SetCollectorPageSize(ns2__SetCollectorPageSizeRequestType *ns2__SetCollectorPageSize, _ns2__SetCollectorPageSizeResponse &ns2__SetCollectorPageSizeResponse);

//gsoap ns2 service method-action: LogUserEvent "urn:vim25/5.5"
int __ns2__LogUserEvent(ns2__LogUserEventRequestType *ns2__LogUserEvent, _ns2__LogUserEventResponse &ns2__LogUserEventResponse);

//gsoap ns2 service method-action: CreateAlarm "urn:vim25/5.5"
int __ns2__CreateAlarm(ns2__CreateAlarmRequestType *ns2__CreateAlarm, _ns2__CreateAlarmResponse &ns2__CreateAlarmResponse);

//gsoap ns2 service method-action: ReconfigureDVPort_USCORETask "urn:vim25/5.5"
int __ns2__ReconfigureDVPort_USCORETask(ns2__ReconfigureDVPortRequestType *ns2__ReconfigureDVPort_USCORETask, _ns2__ReconfigureDVPort_USCORETaskResponse &ns2__ReconfigureDVPort_USCORETaskResponse);

//gsoap ns2 service method-action: FetchDVPorts "urn:vim25/5.5"
int __ns2__FetchDVPorts(ns2__FetchDVPortsRequestType *ns2__FetchDVPorts, _ns2__FetchDVPortsResponse &ns2__FetchDVPortsResponse);

//gsoap ns2 service method-action: RefreshDVPortState "urn:vim25/5.5"
int __ns2__RefreshDVPortState(ns2__RefreshDVPortStateRequestType *ns2__RefreshDVPortState, _ns2__RefreshDVPortStateResponse &ns2__RefreshDVPortStateResponse);

//gsoap ns2 service method-action: QueryNetworkHint "urn:vim25/5.5"
int __ns2__QueryNetworkHint(ns2__QueryNetworkHintRequestType *ns2__QueryNetworkHint, _ns2__QueryNetworkHintResponse &ns2__QueryNetworkHintResponse);
