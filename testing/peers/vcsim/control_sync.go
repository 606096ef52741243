package main

import (
	"context"
	"fmt"
	"net"
	"net/http"
	"sort"
	"strings"

	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/mo"
	"github.com/vmware/govmomi/vim25/types"
)

// Routes for the tests of a client's inventory sync: the inventory as flat
// facts in the client's terms, and the changes of NICs and VLAN policies
// that the other routes do not make.

type routeFunc func(string, map[string]func(*http.Request) (interface{}, error))

func (s *Simulator) addSyncRoutes(route routeFunc) {
	route("/inventory/facts", getter(func() interface{} {
		out := []map[string]string{}
		for _, f := range s.facts() {
			out = append(out, map[string]string{"fact": f})
		}
		return out
	}))
	route("/vm/nic/move", post(s, func(ctx context.Context, req struct {
		Vm      string `json:"vm"`
		Key     int32  `json:"key"`
		Network string `json:"network"`
	}) (interface{}, error) {
		if err := s.moveNic(req.Vm, req.Key, req.Network); err != nil {
			return nil, err
		}
		return s.vmByValue(req.Vm)
	}))
	route("/portgroup/vlan", post(s, func(ctx context.Context, req struct {
		Portgroup string      `json:"portgroup"`
		Vlan      *int32      `json:"vlan"`
		Trunk     []VlanRange `json:"trunk"`
		Pvlan     *int32      `json:"pvlan"`
	}) (interface{}, error) {
		var spec types.BaseVmwareDistributedVirtualSwitchVlanSpec
		switch {
		case req.Vlan != nil:
			spec = &types.VmwareDistributedVirtualSwitchVlanIdSpec{VlanId: *req.Vlan}
		case req.Trunk != nil:
			t := &types.VmwareDistributedVirtualSwitchTrunkVlanSpec{}
			for _, r := range req.Trunk {
				t.VlanId = append(t.VlanId, types.NumericRange{Start: r.Start, End: r.End})
			}
			spec = t
		case req.Pvlan != nil:
			spec = &types.VmwareDistributedVirtualSwitchPvlanSpec{PvlanId: *req.Pvlan}
		default:
			return nil, badRequest("give vlan, trunk or pvlan")
		}
		pg, err := s.findPortgroup(req.Portgroup)
		if err != nil {
			return nil, err
		}
		var config types.DVPortgroupConfigInfo
		simulator.Map.WithLock(pg, func() {
			if setting, ok := pg.Config.DefaultPortConfig.(*types.VMwareDVSPortSetting); ok {
				setting.Vlan = spec
			} else {
				pg.Config.DefaultPortConfig = &types.VMwareDVSPortSetting{Vlan: spec}
			}
			config = pg.Config
		})
		simulator.Map.Update(pg, []types.PropertyChange{{Name: "config", Val: config}})
		return portgroupView(pg), nil
	}))
	route("/host/nic/add", post(s, func(ctx context.Context, req struct {
		Host    string `json:"host"`
		Device  string `json:"device"`
		Mac     string `json:"mac"`
		SpeedMb int32  `json:"speedMb"`
		Duplex  bool   `json:"duplex"`
		Vswitch string `json:"vswitch"`
		Vendor  string `json:"vendor"`
		Model   string `json:"model"`
	}) (interface{}, error) {
		host, err := s.findHost(req.Host)
		if err != nil {
			return nil, err
		}
		if req.Device == "" {
			return nil, badRequest("the NIC needs a device name")
		}
		var fault error
		simulator.Map.WithLock(host, func() {
			net := host.Config.Network
			for _, p := range net.Pnic {
				if p.Device == req.Device {
					fault = conflictError{"the host has " + req.Device}
					return
				}
			}
			// The card shows in the host's hardware too, on a slot of its own.
			pci := fmt.Sprintf("0000:%02x:00.0", 0x40+len(net.Pnic))
			nic := types.PhysicalNic{Key: "key-vim.host.PhysicalNic-" + req.Device, Device: req.Device, Mac: req.Mac, Pci: pci}
			if host.Hardware != nil {
				host.Hardware.PciDevice = append(host.Hardware.PciDevice, types.HostPciDevice{Id: pci, ClassId: 512, VendorName: req.Vendor, DeviceName: req.Model})
			}
			if req.SpeedMb > 0 {
				nic.LinkSpeed = &types.PhysicalNicLinkInfo{SpeedMb: req.SpeedMb, Duplex: req.Duplex}
			}
			net.Pnic = append(net.Pnic, nic)
			if req.Vswitch == "" {
				return
			}
			for i := range net.Vswitch {
				if net.Vswitch[i].Name != req.Vswitch {
					continue
				}
				if bond, ok := net.Vswitch[i].Spec.Bridge.(*types.HostVirtualSwitchBondBridge); ok {
					bond.NicDevice = append(bond.NicDevice, req.Device)
				} else {
					net.Vswitch[i].Spec.Bridge = &types.HostVirtualSwitchBondBridge{NicDevice: []string{req.Device}}
				}
				net.Vswitch[i].Pnic = append(net.Vswitch[i].Pnic, nic.Key)
				return
			}
			fault = notFoundError{"vswitch", req.Vswitch}
		})
		if fault != nil {
			return nil, fault
		}
		// One record with both, as a host that gained a card reports it.
		var hardware *types.HostHardwareInfo
		simulator.Map.WithLock(host, func() { hardware = host.Hardware })
		simulator.Map.Update(host, []types.PropertyChange{{Name: "hardware", Val: hardware}})
		s.publishHostNetwork(host)
		return hostView(host), nil
	}))
	route("/host/nic/remove", post(s, func(ctx context.Context, req struct {
		Host   string `json:"host"`
		Device string `json:"device"`
	}) (interface{}, error) {
		host, err := s.findHost(req.Host)
		if err != nil {
			return nil, err
		}
		found := false
		simulator.Map.WithLock(host, func() {
			net := host.Config.Network
			var kept []types.PhysicalNic
			for _, p := range net.Pnic {
				if p.Device == req.Device {
					found = true
				} else {
					kept = append(kept, p)
				}
			}
			net.Pnic = kept
			for i := range net.Vswitch {
				if bond, ok := net.Vswitch[i].Spec.Bridge.(*types.HostVirtualSwitchBondBridge); ok {
					bond.NicDevice = without(bond.NicDevice, req.Device)
				}
				net.Vswitch[i].Pnic = without(net.Vswitch[i].Pnic, "key-vim.host.PhysicalNic-"+req.Device)
			}
		})
		if !found {
			return nil, notFoundError{"NIC", req.Device}
		}
		s.publishHostNetwork(host)
		return hostView(host), nil
	}))
}

func without(list []string, item string) []string {
	var out []string
	for _, v := range list {
		if v != item {
			out = append(out, v)
		}
	}
	return out
}

// moveNic puts a machine's card (key 0: its first) on a distributed port
// group, on a fresh port, or on a standard network.
func (s *Simulator) moveNic(vmValue string, key int32, network string) error {
	vm, err := s.findVM(vmValue)
	if err != nil {
		return err
	}
	ref, err := s.findNetwork(network)
	if err != nil {
		return err
	}
	var backing types.BaseVirtualDeviceBackingInfo
	if ref.Type == "DistributedVirtualPortgroup" {
		pg, err := s.findPortgroup(ref.Value)
		if err != nil {
			return err
		}
		var pgKey string
		var dvsRef types.ManagedObjectReference
		simulator.Map.WithLock(pg, func() { pgKey, dvsRef = pg.Key, *pg.Config.DistributedVirtualSwitch })
		dvs, err := s.findSwitch(dvsRef.Value)
		if err != nil {
			return err
		}
		var uuid string
		simulator.Map.WithLock(dvs, func() { uuid = dvs.Uuid })
		backing = &types.VirtualEthernetCardDistributedVirtualPortBackingInfo{
			Port: types.DistributedVirtualSwitchPortConnection{SwitchUuid: uuid, PortgroupKey: pgKey, PortKey: s.ports.alloc(uuid)},
		}
	} else {
		backing = &types.VirtualEthernetCardNetworkBackingInfo{
			VirtualDeviceDeviceBackingInfo: types.VirtualDeviceDeviceBackingInfo{DeviceName: entityName(*ref)},
			Network:                        ref,
		}
	}
	moved := false
	var hardware types.VirtualHardware
	simulator.Map.WithLock(vm, func() {
		for _, d := range vm.Config.Hardware.Device {
			nic, ok := d.(types.BaseVirtualEthernetCard)
			if !ok || moved {
				continue
			}
			card := nic.GetVirtualEthernetCard()
			if key != 0 && card.Key != key {
				continue
			}
			card.Backing = backing
			moved = true
		}
		if moved {
			// Machines here have one card: its network is now the only one.
			vm.Network = []types.ManagedObjectReference{*ref}
		}
		hardware = vm.Config.Hardware
	})
	if !moved {
		return notFoundError{"card", fmt.Sprint(key)}
	}
	simulator.Map.Update(vm, []types.PropertyChange{{Name: "config.hardware", Val: hardware}})
	return nil
}

// facts lists the inventory as a client of the property collector should
// hold it, one "<kind> <id> <attribute> <value>" per line, sorted. Ids
// follow the client's keys: hosts, machines, switches and port groups by
// reference, a host's NICs, switches and port groups by their key with the
// host's reference appended, machine cards by their key.
func (s *Simulator) facts() []string {
	var out []string
	add := func(format string, args ...interface{}) { out = append(out, fmt.Sprintf(format, args...)) }

	hostFolderOf := map[string]string{} // host folder -> datacenter
	for _, e := range sortedEntities("Datacenter") {
		dc := e.(*simulator.Datacenter)
		simulator.Map.WithLock(dc, func() { hostFolderOf[dc.HostFolder.Value] = dc.Self.Value })
	}
	hostNames := map[string]string{}
	for _, e := range sortedEntities("HostSystem") {
		h := e.(*simulator.HostSystem)
		simulator.Map.WithLock(h, func() { hostNames[h.Self.Value] = h.Name })
	}

	for _, e := range sortedEntities("HostSystem") {
		h := e.(*simulator.HostSystem)
		var parent types.ManagedObjectReference
		simulator.Map.WithLock(h, func() { parent = *h.Parent })
		// The client climbs host, compute resource, host folder: no deeper.
		dcRef := ""
		if cr, ok := simulator.Map.Get(parent).(mo.Entity); ok {
			var folder *types.ManagedObjectReference
			simulator.Map.WithLock(cr, func() { folder = cr.Entity().Parent })
			if folder != nil {
				dcRef = hostFolderOf[folder.Value]
			}
		}
		simulator.Map.WithLock(h, func() { hostFacts(add, h, parent.Value, dcRef) })
	}
	for _, e := range sortedEntities("VirtualMachine") {
		vm := e.(*simulator.VirtualMachine)
		simulator.Map.WithLock(vm, func() { vmFacts(add, vm, hostNames) })
	}
	primaries := map[string]map[int32]int32{} // switch -> secondary -> primary
	for _, e := range sortedEntities(dvsInternalType) {
		dvs := e.(*simulator.DistributedVirtualSwitch)
		simulator.Map.WithLock(dvs, func() {
			add("dvs %s name %s", dvs.Self.Value, dvs.Name)
			add("dvs %s uuid %s", dvs.Self.Value, dvs.Uuid)
			primaries[dvs.Self.Value] = map[int32]int32{}
			if cfg, ok := dvs.Config.(*types.VMwareDVSConfigInfo); ok {
				for _, m := range cfg.PvlanConfig {
					primaries[dvs.Self.Value][m.SecondaryVlanId] = m.PrimaryVlanId
				}
			}
		})
	}
	for _, e := range sortedEntities("DistributedVirtualPortgroup") {
		pg := e.(*simulator.DistributedVirtualPortgroup)
		simulator.Map.WithLock(pg, func() {
			id := pg.Self.Value
			add("dvpg %s name %s", id, pg.Name)
			if pg.Config.DistributedVirtualSwitch != nil {
				add("dvpg %s switch %s", id, pg.Config.DistributedVirtualSwitch.Value)
			}
			var spec types.BaseVmwareDistributedVirtualSwitchVlanSpec
			if setting, ok := pg.Config.DefaultPortConfig.(*types.VMwareDVSPortSetting); ok {
				spec = setting.Vlan
			}
			add("dvpg %s vlan %s", id, dvVlanText(spec))
			add("dvpg %s policy %s", id, dvVlanPolicy(spec))
			if pvlan, ok := spec.(*types.VmwareDistributedVirtualSwitchPvlanSpec); ok && pg.Config.DistributedVirtualSwitch != nil {
				add("dvpg %s pvlan %d/%d", id, primaries[pg.Config.DistributedVirtualSwitch.Value][pvlan.PvlanId], pvlan.PvlanId)
			}
		})
	}
	sort.Strings(out)
	return out
}

func hostFacts(add func(string, ...interface{}), h *simulator.HostSystem, parent, dcRef string) {
	id := h.Self.Value
	add("host %s name %s", id, h.Name)
	add("host %s parent %s", id, parent)
	add("host %s dcRef %s", id, dcRef)
	add("host %s connection %s", id, h.Runtime.ConnectionState)
	add("host %s maintenance %t", id, h.Runtime.InMaintenanceMode)
	if h.ConfigManager.NetworkSystem != nil {
		add("host %s networkId %s", id, h.ConfigManager.NetworkSystem.Value)
	}
	vendors, models := map[string]string{}, map[string]string{}
	if hw := h.Hardware; hw != nil {
		if hw.SystemInfo.Vendor != "" {
			add("host %s vendor %s", id, hw.SystemInfo.Vendor)
			add("host %s model %s", id, hw.SystemInfo.Model)
		}
		add("host %s cores %d", id, hw.CpuInfo.NumCpuCores)
		for _, d := range hw.PciDevice {
			vendors[d.Id], models[d.Id] = d.VendorName, d.DeviceName
		}
	}
	// The kernel machine of the host, which carries its VMkernel NICs.
	add("vm %s name VMKernel", id)
	add("vm %s host %s", id, id)
	add("vm %s hostName %s", id, h.Name)
	add("vm %s power on", id)
	add("vm %s ft disabled", id)
	add("vm %s template false", id)
	if h.Config == nil || h.Config.Network == nil {
		return
	}
	net := h.Config.Network
	for _, sw := range net.Vswitch {
		add("vswitch %s%s name %s", sw.Key, id, sw.Name)
	}
	for _, p := range net.Pnic {
		nic := id + "/" + p.Device
		add("pnic %s mac %s", nic, p.Mac)
		speed, raw, duplex := 0, 0, "unknown"
		if l := p.LinkSpeed; l != nil {
			switch l.SpeedMb {
			case 10, 100, 1000, 10000, 40000, 100000:
				speed = int(l.SpeedMb)
			}
			if l.SpeedMb > 0 {
				raw = int(l.SpeedMb)
			}
			duplex = map[bool]string{true: "full", false: "half"}[l.Duplex]
		}
		add("pnic %s speedMb %d", nic, speed)
		add("pnic %s linkSpeedMb %d", nic, raw)
		add("pnic %s duplex %s", nic, duplex)
		add("pnic %s vendor %s", nic, vendors[p.Pci])
		add("pnic %s model %s", nic, models[p.Pci])
		sw := uplinkOf(net, p.Device, id)
		add("pnic %s switchId %s", nic, sw.switchId)
		add("pnic %s mtu %d", nic, sw.mtu)
		add("pnic %s uplinkPortKey %s", nic, sw.uplinkPortKey)
		add("pnic %s uplinkName %s", nic, sw.uplinkName)
		add("pnic %s uplinkLag %s", nic, sw.lag)
		add("pnic %s dvsName %s", nic, sw.dvsName)
	}
	for _, pg := range net.Portgroup {
		pid := pg.Key + id
		add("hostpg %s name %s", pid, pg.Spec.Name)
		add("hostpg %s switch %s", pid, pg.Vswitch)
		add("hostpg %s vlanId %d", pid, pg.Spec.VlanId)
		switch v := pg.Spec.VlanId; {
		case v == 4095:
			add("hostpg %s vlan trunk 1-4094", pid)
		case v >= 1 && v <= 4094:
			add("hostpg %s vlan access %d", pid, v)
		default:
			add("hostpg %s vlan none", pid)
		}
		add("hostpg %s policy %s", pid, hostVlanPolicy(pg.Spec.VlanId))
	}
	for _, v := range net.Vnic {
		for _, kind := range []string{"vnic", "hostvnic"} {
			nic := id + "/" + v.Device
			if kind == "vnic" {
				add("vnic %s mac %s", nic, v.Spec.Mac) // only the kernel machine's copy has it
			}
			add("%s %s label %s", kind, nic, v.Device)
			add("%s %s mtu %d", kind, nic, v.Spec.Mtu)
			if ip := v.Spec.Ip; ip != nil && ip.IpAddress != "" && ip.SubnetMask != "" {
				ones, _ := gonet(ip.SubnetMask).Size()
				add("%s %s ip %s/%d", kind, nic, ip.IpAddress, ones)
			}
			if port := v.Spec.DistributedVirtualPort; port != nil {
				add("%s %s switchId %s", kind, nic, port.SwitchUuid)
				add("%s %s portKey %s", kind, nic, port.PortKey)
				add("%s %s portGroup %s", kind, nic, port.PortgroupKey)
			} else {
				add("%s %s switchId ", kind, nic)
				add("%s %s portKey ", kind, nic)
				add("%s %s portGroup %s", kind, nic, v.Portgroup)
			}
		}
	}
}

// lagOf names the link aggregation group that owns an uplink port: its
// name, else its key; empty for a plain uplink.
func lagOf(ps types.HostProxySwitch, port string) string {
	for _, lag := range ps.HostLag {
		for _, kv := range lag.UplinkPort {
			if kv.Key == port {
				if lag.LagName != "" {
					return lag.LagName
				}
				return lag.LagKey
			}
		}
	}
	return ""
}

func gonet(mask string) net.IPMask {
	ip := net.ParseIP(mask).To4()
	if ip == nil {
		return net.IPMask{}
	}
	return net.IPv4Mask(ip[0], ip[1], ip[2], ip[3])
}

type uplink struct {
	switchId, uplinkPortKey, uplinkName, dvsName, lag string
	mtu                                               int32
}

// uplinkOf finds the switch a NIC serves: a distributed switch through the
// host's proxy switch, else a standard switch that bonds it, else none.
func uplinkOf(net *types.HostNetworkInfo, device, hostId string) uplink {
	for _, ps := range net.ProxySwitch {
		backing, ok := ps.Spec.Backing.(*types.DistributedVirtualSwitchHostMemberPnicBacking)
		if !ok {
			continue
		}
		for _, spec := range backing.PnicSpec {
			if spec.PnicDevice != device {
				continue
			}
			u := uplink{switchId: ps.DvsUuid, uplinkPortKey: spec.UplinkPortKey, dvsName: ps.DvsName, mtu: ps.Mtu}
			for _, kv := range ps.UplinkPort {
				if kv.Key == spec.UplinkPortKey {
					u.uplinkName = kv.Value
				}
			}
			u.lag = lagOf(ps, spec.UplinkPortKey)
			return u
		}
	}
	for _, sw := range net.Vswitch {
		bond, ok := sw.Spec.Bridge.(*types.HostVirtualSwitchBondBridge)
		if !ok {
			continue
		}
		for _, d := range bond.NicDevice {
			if d == device {
				return uplink{switchId: sw.Key + hostId, mtu: sw.Mtu}
			}
		}
	}
	return uplink{}
}

func vmFacts(add func(string, ...interface{}), vm *simulator.VirtualMachine, hostNames map[string]string) {
	id := vm.Self.Value
	add("vm %s name %s", id, vm.Name)
	host := ""
	if h := vm.Runtime.Host; h != nil {
		host = h.Value
	}
	add("vm %s host %s", id, host)
	add("vm %s hostName %s", id, hostNames[host])
	add("vm %s power %s", id, map[bool]string{true: "on", false: "off"}[vm.Runtime.PowerState == types.VirtualMachinePowerStatePoweredOn])
	ft := "disabled"
	if vm.Config != nil {
		switch vm.Config.FtInfo.(type) {
		case *types.FaultTolerancePrimaryConfigInfo:
			ft = "active"
		case *types.FaultToleranceSecondaryConfigInfo:
			ft = "standby"
		}
	}
	add("vm %s ft %s", id, ft)
	add("vm %s template %t", id, vm.Config != nil && vm.Config.Template)
	if vm.Config == nil {
		return
	}
	for _, d := range vm.Config.Hardware.Device {
		nic, ok := d.(types.BaseVirtualEthernetCard)
		if !ok {
			continue
		}
		card := nic.GetVirtualEthernetCard()
		cid := fmt.Sprintf("%s/%d", id, card.Key)
		add("vnic %s mac %s", cid, card.MacAddress)
		if card.DeviceInfo != nil {
			add("vnic %s label %s", cid, card.DeviceInfo.GetDescription().Label)
		}
		switch b := card.Backing.(type) {
		case *types.VirtualEthernetCardDistributedVirtualPortBackingInfo:
			add("vnic %s switchId %s", cid, b.Port.SwitchUuid)
			add("vnic %s portKey %s", cid, b.Port.PortKey)
			add("vnic %s portGroup %s", cid, b.Port.PortgroupKey)
		case *types.VirtualEthernetCardNetworkBackingInfo:
			add("vnic %s switchId ", cid)
			add("vnic %s portKey ", cid)
			add("vnic %s portGroup %s", cid, b.DeviceName)
		case *types.VirtualEthernetCardOpaqueNetworkBackingInfo:
			add("vnic %s switchId ", cid)
			add("vnic %s portKey ", cid)
			add("vnic %s portGroup ", cid)
			add("vnic %s opaqueNetwork %s %s", cid, b.OpaqueNetworkType, b.OpaqueNetworkId)
		default:
			add("vnic %s switchId ", cid)
			add("vnic %s portKey ", cid)
			add("vnic %s portGroup ", cid)
		}
	}
}

// hostVlanPolicy is the kind of a standard port group's VLAN id.
func hostVlanPolicy(id int32) string {
	switch {
	case id == 4095:
		return "trunk"
	case id >= 1 && id <= 4094:
		return "vlan"
	}
	return "none"
}

// dvVlanPolicy is the kind of a distributed port group's VLAN policy.
func dvVlanPolicy(spec types.BaseVmwareDistributedVirtualSwitchVlanSpec) string {
	switch spec.(type) {
	case nil:
		return "none"
	case *types.VmwareDistributedVirtualSwitchVlanIdSpec:
		return "vlan"
	case *types.VmwareDistributedVirtualSwitchTrunkVlanSpec:
		return "trunk"
	case *types.VmwareDistributedVirtualSwitchPvlanSpec:
		return "pvlan"
	}
	return "other"
}

// dvVlanText is a distributed port group's VLAN as the client shows it:
// "access N", "trunk a-b,c-d" (VLAN 0 read as 1, ranges beyond 4094
// left out), or "none" (untagged, and PVLAN, which it does not map).
func dvVlanText(spec types.BaseVmwareDistributedVirtualSwitchVlanSpec) string {
	switch v := spec.(type) {
	case *types.VmwareDistributedVirtualSwitchVlanIdSpec:
		if v.VlanId >= 1 && v.VlanId <= 4094 {
			return fmt.Sprintf("access %d", v.VlanId)
		}
	case *types.VmwareDistributedVirtualSwitchTrunkVlanSpec:
		var ranges []string
		for _, r := range v.VlanId {
			start, end := r.Start, r.End
			if start == 0 {
				start = 1
			}
			if end == 0 {
				end = 1
			}
			if start > end || end > 4094 {
				continue
			}
			ranges = append(ranges, fmt.Sprintf("%d-%d", start, end))
		}
		return strings.TrimSpace("trunk " + strings.Join(ranges, ","))
	}
	return "none"
}
