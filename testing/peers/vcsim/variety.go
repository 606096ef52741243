package main

import (
	"context"
	"fmt"
	"strings"

	"github.com/vmware/govmomi/object"
	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/types"
)

// With -variety the inventory holds, besides the simulator's model, the
// shapes a client must tell apart: a second standard switch with a bond
// bridge, NICs of several speeds (one between the rates of a switch, one
// without link), standard port groups with a VLAN and a trunk, a second
// VMkernel NIC, machine cards of three classes, fault-tolerant machines,
// distributed port groups with trunk and PVLAN policies, and per
// datacenter a standalone host in a nested host folder whose machines
// stand in nested VM folders. Hosts with an even reference number serve
// their distributed switch through an LACP group, the others through a
// plain uplink.

const (
	storageDevice = "vmnic2" // on the second standard switch
	spareDevice   = "vmnic3" // on no switch, without link
	storageSwitch = "vSwitch1"
	storagePg     = "Storage"
	trunkPg       = "Trunk"
	nestedHost    = "nested"
)

// Per position of a distributed port group on its switch: access, trunk,
// PVLAN, access, ...
func varietyVlan(pos int, vlan int32) types.BaseVmwareDistributedVirtualSwitchVlanSpec {
	switch pos % 3 {
	case 1:
		return &types.VmwareDistributedVirtualSwitchTrunkVlanSpec{VlanId: []types.NumericRange{{Start: 0, End: 100}, {Start: 200, End: 4094}}}
	case 2:
		return &types.VmwareDistributedVirtualSwitchPvlanSpec{PvlanId: vlan}
	}
	return &types.VmwareDistributedVirtualSwitchVlanIdSpec{VlanId: vlan}
}

// The primary VLAN of the variety's PVLAN port groups, whose own ids are
// isolated secondaries of it.
const pvlanPrimary = 500

// pvlanMap is a switch's PVLAN map for these secondary VLANs: the primary
// itself, promiscuous, and each secondary; none without secondaries.
func pvlanMap(secondaries []int32) []types.VMwareDVSPvlanMapEntry {
	if len(secondaries) == 0 {
		return nil
	}
	m := []types.VMwareDVSPvlanMapEntry{{PrimaryVlanId: pvlanPrimary, SecondaryVlanId: pvlanPrimary, PvlanType: "promiscuous"}}
	for _, s := range secondaries {
		m = append(m, types.VMwareDVSPvlanMapEntry{PrimaryVlanId: pvlanPrimary, SecondaryVlanId: s, PvlanType: "isolated"})
	}
	return m
}

// addHostVariety gives host number n a second standard switch with a
// storage NIC and a VMkernel NIC, a spare NIC on no switch, and two more
// port groups. It runs before the host is published.
func addHostVariety(host *simulator.HostSystem, n int) {
	simulator.Map.WithLock(host, func() {
		net := host.Config.Network
		// 1 Gb/s, and rates that vCenter reports but older clients lack.
		speed := []int32{1000, 2500, 25000, 100000}[n%4]
		net.Pnic = append(net.Pnic,
			types.PhysicalNic{Key: "key-vim.host.PhysicalNic-" + storageDevice, Device: storageDevice, Pci: "0000:1b:00.0",
				Driver: "ixgben", LinkSpeed: &types.PhysicalNicLinkInfo{SpeedMb: speed, Duplex: false},
				Mac: fmt.Sprintf("00:50:56:%02x:%02x:%02x", 0x20, (n>>8)&0xff, n&0xff)},
			types.PhysicalNic{Key: "key-vim.host.PhysicalNic-" + spareDevice, Device: spareDevice, Pci: "0000:1c:00.0",
				Driver: "ixgben", Mac: fmt.Sprintf("00:50:56:%02x:%02x:%02x", 0x21, (n>>8)&0xff, n&0xff)})
		swKey := "key-vim.host.VirtualSwitch-" + storageSwitch
		mtu := int32(9000)
		net.Vswitch = append(net.Vswitch, types.HostVirtualSwitch{
			Name: storageSwitch, Key: swKey, NumPorts: 128, Mtu: mtu,
			Pnic: []string{"key-vim.host.PhysicalNic-" + storageDevice},
			Spec: types.HostVirtualSwitchSpec{NumPorts: 128, Mtu: mtu,
				Bridge: &types.HostVirtualSwitchBondBridge{NicDevice: []string{storageDevice}}},
		})
		for _, pg := range []struct {
			name string
			vlan int32
		}{{storagePg, int32(7 + n%3)}, {trunkPg, 4095}} {
			net.Portgroup = append(net.Portgroup, types.HostPortGroup{
				Key:     "key-vim.host.PortGroup-" + pg.name,
				Vswitch: swKey,
				Spec:    types.HostPortGroupSpec{Name: pg.name, VlanId: pg.vlan, VswitchName: storageSwitch},
			})
		}
		net.Vnic = append(net.Vnic, types.HostVirtualNic{
			Device: "vmk1", Key: "key-vim.host.VirtualNic-vmk1", Portgroup: storagePg,
			Spec: types.HostVirtualNicSpec{
				Ip:  &types.HostIpConfig{IpAddress: fmt.Sprintf("192.168.%d.%d", n/250, n%250+1), SubnetMask: "255.255.255.0"},
				Mac: fmt.Sprintf("00:50:56:%02x:%02x:%02x", 0x30, (n>>8)&0xff, n&0xff), Mtu: mtu, Portgroup: storagePg,
			},
		})
		if hw := host.Hardware; hw != nil {
			hw.PciDevice = append(hw.PciDevice,
				types.HostPciDevice{Id: "0000:1b:00.0", ClassId: 512, VendorName: "Intel Corporation", DeviceName: "Ethernet Controller X550"},
				types.HostPciDevice{Id: "0000:1c:00.0", ClassId: 512, VendorName: "Intel Corporation", DeviceName: "82599EB 10-Gigabit SFI/SFP+"})
		}
	})
}

// cardFor makes the network card of a machine's n-th place on its host:
// E1000, VMXNET 3, E1000e, SR-IOV and VMXNET 3 with PVRDMA in turn.
func cardFor(n int, template types.VirtualE1000) types.BaseVirtualDevice {
	card := template.VirtualEthernetCard
	vmxnet3 := types.VirtualVmxnet3{VirtualVmxnet: types.VirtualVmxnet{VirtualEthernetCard: card}}
	switch n % 5 {
	case 1:
		return &vmxnet3
	case 2:
		return &types.VirtualE1000e{VirtualEthernetCard: card}
	case 3:
		return &types.VirtualSriovEthernetCard{VirtualEthernetCard: card}
	case 4:
		return &types.VirtualVmxnet3Vrdma{VirtualVmxnet3: vmxnet3}
	}
	return &template
}

// proxyMtu is the MTU of a host's proxy switch: with -variety, hosts whose
// reference has an odd length report none, as some vCenters do.
func proxyMtu(variety bool, refLength int) int32 {
	if variety && refLength%2 == 1 {
		return 0
	}
	return 1500
}

// The variety's distributed switches have one LACP group of two ports;
// hosts with an even reference number bundle their uplink NIC into it.
var lacpGroup = types.VMwareDvsLacpGroupConfig{
	Key: "1", Name: "lag1", Mode: string(types.VMwareUplinkLacpModeActive), UplinkNum: 2,
	LoadbalanceAlgorithm: string(types.VMwareDvsLacpLoadBalanceAlgorithmSrcDestIpTcpUdpPortVlan),
	UplinkName:           []string{"lag1-0", "lag1-1"},
}

func onLag(host types.ManagedObjectReference) bool { return refNumber(host.Value)%2 == 0 }

// lagPorts gives a host's proxy switch the group's uplink ports beside its
// plain ones, and returns the first of them, which the NIC then serves.
func (s *Simulator) lagPorts(uuid string, uplinks []types.KeyValue) (string, []types.KeyValue, []types.HostProxySwitchHostLagConfig) {
	lag := types.HostProxySwitchHostLagConfig{LagKey: lacpGroup.Key, LagName: lacpGroup.Name}
	for _, name := range lacpGroup.UplinkName {
		port := types.KeyValue{Key: s.ports.alloc(uuid), Value: name}
		lag.UplinkPort = append(lag.UplinkPort, port)
		uplinks = append(uplinks, port)
	}
	return lag.UplinkPort[0].Key, uplinks, []types.HostProxySwitchHostLagConfig{lag}
}

// addHostStates gives the inventory what real ones have beside running
// hosts and machines: per datacenter, its nested host in maintenance mode,
// a template and a machine that names no host (as one whose host vCenter
// lost does); and the last host disconnected.
func (s *Simulator) addHostStates(ctx context.Context) error {
	for _, e := range sortedEntities("HostSystem") {
		host := e.(*simulator.HostSystem)
		if !strings.HasSuffix(host.Name, "_"+nestedHost) {
			continue
		}
		var network *types.ManagedObjectReference // the standard network: the host is on no switch
		dc := simulator.Map.Get(datacenterOf(host.Self)).(*simulator.Datacenter)
		if n := simulator.Map.FindByName(standardNet, dc.Network); n != nil {
			ref := n.Reference()
			network = &ref
		}
		for _, kind := range []string{"template", "hostless"} {
			ref, err := s.createVMIn(ctx, strings.TrimSuffix(host.Name, nestedHost)+kind, host.Self, network, false,
				types.ManagedObjectReference{}, 0)
			if err != nil {
				return err
			}
			vm := simulator.Map.Get(ref).(*simulator.VirtualMachine)
			simulator.Map.WithLock(vm, func() {
				if kind == "template" {
					vm.Config.Template = true
					vm.Summary.Config.Template = true
				} else {
					vm.Runtime.Host = nil
					vm.Summary.Runtime.Host = nil
				}
			})
		}
		simulator.Map.WithLock(host, func() { host.Runtime.InMaintenanceMode = true })
	}
	hosts := sortedEntities("HostSystem")
	last := hosts[len(hosts)-1].(*simulator.HostSystem)
	simulator.Map.WithLock(last, func() {
		last.Runtime.ConnectionState = types.HostSystemConnectionStateDisconnected
		last.Summary.Runtime = &last.Runtime
	})
	return nil
}

// addVApps gives a datacenter a vApp, filed as vCenter files one, not as
// the simulator does: the vApp in the VM folder, its two machines in the
// vApp alone, in no folder, on the first host of the datacenter on a
// distributed switch. No vApp nests in another: the simulator's property
// collector cannot follow a vApp's resourcePool, where vCenter lists them.
func (s *Simulator) addVApps(ctx context.Context, dc *simulator.Datacenter) error {
	var host *simulator.HostSystem
	for _, e := range sortedEntities("HostSystem") {
		h := e.(*simulator.HostSystem)
		if datacenterOf(h.Self) == dc.Self && len(switchesOfHost(h.Self)) > 0 {
			host = h
			break
		}
	}
	if host == nil {
		return nil // no distributed switch in this datacenter
	}
	pool := poolOf(host)
	if pool == nil {
		return fmt.Errorf("host %s has no resource pool", host.Self.Value)
	}
	var vmFolder types.ManagedObjectReference
	var dcName string
	simulator.Map.WithLock(dc, func() { vmFolder, dcName = dc.VmFolder, dc.Name })
	app, err := object.NewResourcePool(s.vim, *pool).CreateVApp(ctx, dcName+"_vapp", types.DefaultResourceConfigSpec(),
		types.VAppConfigSpec{}, object.NewFolder(s.vim, vmFolder))
	if err != nil {
		return err
	}
	folder := simulator.Map.Get(vmFolder).(*simulator.Folder)
	simulator.Map.AppendReference(folder, &folder.ChildEntity, app.Reference())
	for i := 0; i < 2; i++ {
		ref, err := s.createVMIn(ctx, fmt.Sprintf("%s_vapp_VM%d", dcName, i), host.Self, nil, true,
			types.ManagedObjectReference{}, i)
		if err != nil {
			return err
		}
		fileInVApp(simulator.Map.Get(ref).(*simulator.VirtualMachine), app.Reference())
	}
	return nil
}

// fileInVApp moves a machine from its folder and resource pool into a
// vApp. The simulator walks an entity's parents to find its datacenter,
// so the machine's parent is the vApp where vCenter would leave it unset.
func fileInVApp(vm *simulator.VirtualMachine, app types.ManagedObjectReference) {
	var folder, pool types.ManagedObjectReference
	simulator.Map.WithLock(vm, func() {
		folder, pool = *vm.Parent, *vm.ResourcePool
		vm.Parent, vm.ParentVApp, vm.ResourcePool = &app, &app, &app
	})
	if f, ok := simulator.Map.Get(folder).(*simulator.Folder); ok {
		simulator.Map.RemoveReference(f, &f.ChildEntity, vm.Self)
	}
	if p, ok := simulator.Map.Get(pool).(*simulator.ResourcePool); ok {
		simulator.Map.RemoveReference(p, &p.Vm, vm.Self)
	}
	a := simulator.Map.Get(app).(*simulator.VirtualApp)
	simulator.Map.AppendReference(a, &a.Vm, vm.Self)
}

// addOpaqueCard gives a machine a second card, on an NSX opaque network.
func addOpaqueCard(vm *simulator.VirtualMachine, networkId string) {
	card := &types.VirtualVmxnet3{VirtualVmxnet: types.VirtualVmxnet{VirtualEthernetCard: types.VirtualEthernetCard{
		VirtualDevice: types.VirtualDevice{Key: 4100, DeviceInfo: &types.Description{Label: "Network adapter NSX"},
			Backing: &types.VirtualEthernetCardOpaqueNetworkBackingInfo{OpaqueNetworkId: networkId, OpaqueNetworkType: "nsx.LogicalSwitch"}},
		AddressType: string(types.VirtualEthernetCardMacTypeAssigned), MacAddress: "00:50:56:be:00:01"}}}
	simulator.Map.WithLock(vm, func() { vm.Config.Hardware.Device = append(vm.Config.Hardware.Device, card) })
	simulator.Map.Update(vm, []types.PropertyChange{{Name: "config.hardware", Val: vm.Config.Hardware}})
}

// setFtRole makes a machine the primary or the secondary of a
// fault-tolerant pair.
func setFtRole(vm *simulator.VirtualMachine, primary bool) {
	var info types.BaseFaultToleranceConfigInfo
	if primary {
		info = &types.FaultTolerancePrimaryConfigInfo{FaultToleranceConfigInfo: types.FaultToleranceConfigInfo{Role: 1}}
	} else {
		info = &types.FaultToleranceSecondaryConfigInfo{FaultToleranceConfigInfo: types.FaultToleranceConfigInfo{Role: 2}}
	}
	simulator.Map.WithLock(vm, func() { vm.Config.FtInfo = info })
	simulator.Map.Update(vm, []types.PropertyChange{{Name: "config.ftInfo", Val: info}})
}

// addNestedHost puts a standalone host in a folder inside a folder of the
// datacenter's host folder, with machines in nested VM folders.
func (s *Simulator) addNestedHost(ctx context.Context, dc *simulator.Datacenter, vms int) error {
	var hostFolder, vmFolder types.ManagedObjectReference
	var dcName string
	simulator.Map.WithLock(dc, func() { hostFolder, vmFolder, dcName = dc.HostFolder, dc.VmFolder, dc.Name })
	outer, err := object.NewFolder(s.vim, hostFolder).CreateFolder(ctx, "Lab")
	if err != nil {
		return err
	}
	inner, err := outer.CreateFolder(ctx, "Racks")
	if err != nil {
		return err
	}
	info, err := waitTask(inner.AddStandaloneHost(ctx, types.HostConnectSpec{HostName: dcName + "_" + nestedHost}, true, nil, nil))
	if err != nil {
		return err
	}
	hostRef := info.Result.(types.ManagedObjectReference)
	host := simulator.Map.Get(hostRef).(*simulator.HostSystem)
	if err := s.mountDatastores(ctx, hostRef, dc.Self); err != nil {
		return err
	}
	n := refNumber(hostRef.Value) + 2000
	s.giveHostIdentity(host, n)
	addHostVariety(host, n)
	s.publishHostNetwork(host)
	apps, err := object.NewFolder(s.vim, vmFolder).CreateFolder(ctx, "Apps")
	if err != nil {
		return err
	}
	web, err := apps.CreateFolder(ctx, "Web")
	if err != nil {
		return err
	}
	// Its machines are on the standard network: the host is on no switch.
	var network *types.ManagedObjectReference
	if n := simulator.Map.FindByName(standardNet, dc.Network); n != nil {
		ref := n.Reference()
		network = &ref
	}
	for i := 0; i < vms; i++ {
		name := fmt.Sprintf("%s_%s_VM%d", dcName, nestedHost, i)
		ref, err := s.createVMIn(ctx, name, hostRef, network, true, web.Reference(), i)
		if err != nil {
			return err
		}
		if i == 0 {
			addOpaqueCard(simulator.Map.Get(ref).(*simulator.VirtualMachine), "ls-"+dcName)
		}
	}
	return nil
}
