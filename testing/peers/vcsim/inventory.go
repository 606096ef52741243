package main

import (
	"context"
	"crypto/sha1"
	"fmt"
	"sort"
	"strings"

	"github.com/vmware/govmomi/object"
	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/simulator/esx"
	"github.com/vmware/govmomi/vim25"
	"github.com/vmware/govmomi/vim25/mo"
	"github.com/vmware/govmomi/vim25/types"
)

const (
	datastoreName  = "LocalDS_0"
	uplinkDevice   = "vmnic1" // the host NIC that serves as uplink of the distributed switches
	uplinkName     = "uplink1"
	standardNet    = "VM Network"
	firstVlan      = 100 // VLAN of the first distributed port group; the next ones count up
	portsPerSwitch = 512
)

// buildInventory makes the configured inventory with the simulator's own
// model, then brings it closer to what vCenter reports.
func (s *Simulator) buildInventory() error {
	cfg := s.cfg
	m := simulator.VPX()
	m.Datacenter = cfg.Datacenters
	m.Host = cfg.StandaloneHosts
	m.Cluster = cfg.Clusters
	m.ClusterHost = cfg.ClusterHosts
	m.Portgroup = cfg.Portgroups
	m.Machine = 0 // machines are made below, per host
	m.Datastore = 1
	m.Pool = 0
	s.model = m
	if err := m.Create(); err != nil {
		return err
	}

	ctx := context.Background()
	vim, err := vim25.NewClient(ctx, m.Service)
	if err != nil {
		return err
	}
	s.vim = vim

	s.installPropertyCollector()
	s.installAlarmManager()
	fixEventMessages()

	for _, e := range sortedEntities(dvsInternalType) {
		s.completeSwitch(e.(*simulator.DistributedVirtualSwitch))
	}
	for i, e := range sortedEntities("HostSystem") {
		host := e.(*simulator.HostSystem)
		s.giveHostIdentity(host, i)
		if cfg.Variety {
			addHostVariety(host, i)
		}
		for _, dvs := range switchesOfHost(host.Self) {
			s.attachUplink(host, dvs)
		}
	}

	// Machines take the distributed port groups of their datacenter in
	// turn; without a switch they go on "VM Network".
	nets := map[types.ManagedObjectReference][]types.ManagedObjectReference{}
	for _, e := range sortedEntities("DistributedVirtualPortgroup") {
		pg := e.(*simulator.DistributedVirtualPortgroup)
		if pg.Config.Uplink == nil || !*pg.Config.Uplink {
			dc := datacenterOf(pg.Self)
			nets[dc] = append(nets[dc], pg.Self)
		}
	}
	for _, e := range sortedEntities("Datacenter") {
		dc := e.Reference()
		if len(nets[dc]) == 0 {
			if n := simulator.Map.FindByName(standardNet, e.(*simulator.Datacenter).Network); n != nil {
				nets[dc] = []types.ManagedObjectReference{n.Reference()}
			}
		}
	}
	made := map[types.ManagedObjectReference]int{}
	for _, e := range sortedEntities("HostSystem") {
		host := e.(*simulator.HostSystem)
		dc := datacenterOf(host.Self)
		for i := 0; i < cfg.VMsPerHost; i++ {
			var net *types.ManagedObjectReference
			if choices := nets[dc]; len(choices) > 0 {
				net = &choices[made[dc]%len(choices)]
			}
			made[dc]++
			name := fmt.Sprintf("%s_VM%d", host.Name, i)
			ref, err := s.createVMIn(ctx, name, host.Self, net, true, types.ManagedObjectReference{}, i)
			if err != nil {
				return fmt.Errorf("creating %s: %w", name, err)
			}
			// The first two machines of each datacenter are a fault-tolerant pair.
			if cfg.Variety && made[dc] <= 2 {
				setFtRole(simulator.Map.Get(ref).(*simulator.VirtualMachine), made[dc] == 1)
			}
		}
	}
	if cfg.Variety {
		for _, e := range sortedEntities("Datacenter") {
			if err := s.addNestedHost(ctx, e.(*simulator.Datacenter), cfg.VMsPerHost); err != nil {
				return fmt.Errorf("nested host: %w", err)
			}
			if err := s.addVApps(ctx, e.(*simulator.Datacenter)); err != nil {
				return fmt.Errorf("vApps: %w", err)
			}
		}
		if err := s.addHostStates(ctx); err != nil {
			return err
		}
	}

	return s.events.startTap()
}

// sortedEntities lists the registry's entities of a type in the order of
// their reference numbers, that is in order of creation.
func sortedEntities(kind string) []mo.Entity {
	all := simulator.Map.All(kind)
	sort.Slice(all, func(i, j int) bool { return refLess(all[i].Reference(), all[j].Reference()) })
	return all
}

func refLess(a, b types.ManagedObjectReference) bool {
	na, nb := refNumber(a.Value), refNumber(b.Value)
	if na != nb {
		return na < nb
	}
	return a.Value < b.Value
}

func refNumber(v string) int {
	n := 0
	i := strings.LastIndexByte(v, '-')
	if i < 0 {
		return 0
	}
	for _, c := range v[i+1:] {
		if c < '0' || c > '9' {
			return 0
		}
		n = n*10 + int(c-'0')
	}
	return n
}

// vcenterUUID is a switch uuid in vCenter's form, "50 1a ... 3c-4d ... 9e",
// derived from the reference so that it is stable and unique.
func vcenterUUID(seed string) string {
	sum := sha1.Sum([]byte(seed))
	var b strings.Builder
	for i := 0; i < 16; i++ {
		switch {
		case i == 8:
			b.WriteByte('-')
		case i > 0:
			b.WriteByte(' ')
		}
		fmt.Fprintf(&b, "%02x", sum[i])
	}
	return b.String()
}

// completeSwitch gives a distributed switch a unique uuid (the simulator
// derives it from the name, which is the same in every datacenter), marks
// its uplink port group as vCenter does, and gives the other port groups a
// VLAN each.
func (s *Simulator) completeSwitch(dvs *simulator.DistributedVirtualSwitch) {
	simulator.Map.WithLock(dvs, func() {
		uuid := vcenterUUID(dvs.Self.Value)
		dvs.Uuid = uuid
		dvs.Summary.Uuid = uuid
		cfg := dvs.Config.(*types.VMwareDVSConfigInfo)
		cfg.Uuid = uuid
		cfg.MaxMtu = 1500
		cfg.NumStandalonePorts = 0
		cfg.UplinkPortPolicy = &types.DVSNameArrayUplinkPortPolicy{UplinkPortName: []string{uplinkName}}
		cfg.UplinkPortgroup = nil
		if s.cfg.Variety {
			cfg.LacpApiVersion = string(types.VMwareDvsLacpApiVersionMultipleLag)
			cfg.LacpGroupConfig = []types.VMwareDvsLacpGroupConfig{lacpGroup}
		}
		s.ports.register(uuid)

		vlan := int32(firstVlan)
		pos := 0
		var secondaries []int32
		for _, ref := range dvs.Portgroup {
			pg, ok := simulator.Map.Get(ref).(*simulator.DistributedVirtualPortgroup)
			if !ok {
				continue
			}
			uplink := strings.Contains(pg.Name, "-DVUplinks")
			pg.Config.Uplink = types.NewBool(uplink)
			pg.Config.Type = string(types.DistributedVirtualPortgroupPortgroupTypeEarlyBinding)
			pg.Config.NumPorts = 128
			if uplink {
				cfg.UplinkPortgroup = append(cfg.UplinkPortgroup, ref)
				continue
			}
			if setting, ok := pg.Config.DefaultPortConfig.(*types.VMwareDVSPortSetting); ok {
				setting.Vlan = &types.VmwareDistributedVirtualSwitchVlanIdSpec{VlanId: vlan}
				if s.cfg.Variety {
					setting.Vlan = varietyVlan(pos, vlan)
					if _, pvlan := setting.Vlan.(*types.VmwareDistributedVirtualSwitchPvlanSpec); pvlan {
						secondaries = append(secondaries, vlan)
					}
				}
			}
			vlan++
			pos++
		}
		cfg.PvlanConfig = pvlanMap(secondaries)
	})
}

// giveHostIdentity makes the MAC addresses and the management address of a
// host its own; the simulator copies them from one template.
func (s *Simulator) giveHostIdentity(host *simulator.HostSystem, n int) {
	simulator.Map.WithLock(host, func() {
		net := host.Config.Network
		for i := range net.Pnic {
			net.Pnic[i].Mac = fmt.Sprintf("00:50:56:%02x:%02x:%02x", 0x10+i, (n>>8)&0xff, n&0xff)
		}
		if len(net.Vnic) > 0 && len(net.Pnic) > 0 {
			net.Vnic[0].Spec.Mac = net.Pnic[0].Mac
			if ip := net.Vnic[0].Spec.Ip; ip != nil {
				ip.Dhcp = false
				ip.IpAddress = fmt.Sprintf("10.20.%d.%d", n/250, n%250+1)
				ip.SubnetMask = "255.255.0.0"
			}
		}
	})
}

// switchesOfHost lists the distributed switches that a host is a member of.
func switchesOfHost(host types.ManagedObjectReference) []*simulator.DistributedVirtualSwitch {
	var out []*simulator.DistributedVirtualSwitch
	for _, e := range sortedEntities(dvsInternalType) {
		dvs := e.(*simulator.DistributedVirtualSwitch)
		member := false
		simulator.Map.WithLock(dvs, func() {
			member = simulator.FindReference(dvs.Summary.HostMember, host) != nil
		})
		if member {
			out = append(out, dvs)
		}
	}
	return out
}

// attachUplink adds the host's proxy switch for a distributed switch, with
// vmnic1 on a fresh uplink port, unless the host has it already. It returns
// whether the host's network changed.
func (s *Simulator) attachUplink(host *simulator.HostSystem, dvs *simulator.DistributedVirtualSwitch) bool {
	var uuid, name string
	var uplinkPg string
	simulator.Map.WithLock(dvs, func() {
		uuid, name = dvs.Uuid, dvs.Name
		if cfg, ok := dvs.Config.(*types.VMwareDVSConfigInfo); ok && len(cfg.UplinkPortgroup) > 0 {
			uplinkPg = cfg.UplinkPortgroup[0].Value
		}
	})
	changed := false
	simulator.Map.WithLock(host, func() {
		net := host.Config.Network
		for _, ps := range net.ProxySwitch {
			if ps.DvsUuid == uuid {
				return
			}
		}
		key := s.ports.alloc(uuid)
		uplinks := []types.KeyValue{{Key: key, Value: uplinkName}}
		var lags []types.HostProxySwitchHostLagConfig
		if s.cfg.Variety && onLag(host.Self) {
			key, uplinks, lags = s.lagPorts(uuid, uplinks)
		}
		ps := types.HostProxySwitch{
			DvsUuid:           uuid,
			DvsName:           name,
			Key:               fmt.Sprintf("DvsPortset-%d", len(net.ProxySwitch)),
			NumPorts:          portsPerSwitch,
			ConfigNumPorts:    portsPerSwitch,
			NumPortsAvailable: portsPerSwitch - 1,
			UplinkPort:        uplinks,
			HostLag:           lags,
			Mtu:               proxyMtu(s.cfg.Variety, len(host.Self.Value)),
			Pnic:              []string{"key-vim.host.PhysicalNic-" + uplinkDevice},
			Spec: types.HostProxySwitchSpec{
				Backing: &types.DistributedVirtualSwitchHostMemberPnicBacking{
					PnicSpec: []types.DistributedVirtualSwitchHostMemberPnicSpec{{
						PnicDevice:         uplinkDevice,
						UplinkPortKey:      key,
						UplinkPortgroupKey: uplinkPg,
					}},
				},
			},
		}
		net.ProxySwitch = append(net.ProxySwitch, ps)
		changed = true
	})
	return changed
}

// firstPortgroup finds the distributed port group that new machines of a
// host's datacenter join: the first one that is not an uplink group.
func firstPortgroup(dc types.ManagedObjectReference) *simulator.DistributedVirtualPortgroup {
	for _, e := range sortedEntities("DistributedVirtualPortgroup") {
		pg := e.(*simulator.DistributedVirtualPortgroup)
		var uplink bool
		simulator.Map.WithLock(pg, func() { uplink = pg.Config.Uplink != nil && *pg.Config.Uplink })
		if !uplink && datacenterOf(pg.Self) == dc {
			return pg
		}
	}
	return nil
}

// createVM makes a machine with -vm-nics network cards on a host. network names
// a distributed port group or a standard network; nil means the first
// distributed port group of the datacenter, or "VM Network" without one.
func (s *Simulator) createVM(ctx context.Context, name string, hostRef types.ManagedObjectReference, network *types.ManagedObjectReference, powerOn bool) (types.ManagedObjectReference, error) {
	return s.createVMIn(ctx, name, hostRef, network, powerOn, types.ManagedObjectReference{}, 0)
}

// createVMIn makes the machine in a folder (the zero reference: the
// datacenter's VM folder); place, its position on the host, chooses the
// class of its card with -variety.
func (s *Simulator) createVMIn(ctx context.Context, name string, hostRef types.ManagedObjectReference, network *types.ManagedObjectReference, powerOn bool, folderRef types.ManagedObjectReference, place int) (types.ManagedObjectReference, error) {
	var none types.ManagedObjectReference
	host, ok := simulator.Map.Get(hostRef).(*simulator.HostSystem)
	if !ok {
		return none, fmt.Errorf("no host %s", hostRef.Value)
	}
	dcRef := datacenterOf(hostRef)
	dc, ok := simulator.Map.Get(dcRef).(*simulator.Datacenter)
	if !ok {
		return none, fmt.Errorf("host %s is in no datacenter", hostRef.Value)
	}

	var pg *simulator.DistributedVirtualPortgroup
	if network == nil {
		pg = firstPortgroup(dcRef)
	} else if network.Type == "DistributedVirtualPortgroup" {
		pg, ok = simulator.Map.Get(*network).(*simulator.DistributedVirtualPortgroup)
		if !ok {
			return none, fmt.Errorf("no port group %s", network.Value)
		}
	}
	var pgKey, uuid, netName string
	if pg != nil {
		var dvsRef types.ManagedObjectReference
		simulator.Map.WithLock(pg, func() { pgKey, dvsRef = pg.Key, *pg.Config.DistributedVirtualSwitch })
		dvs, ok := simulator.Map.Get(dvsRef).(*simulator.DistributedVirtualSwitch)
		if !ok {
			return none, fmt.Errorf("port group %s has no switch", pg.Self.Value)
		}
		simulator.Map.WithLock(dvs, func() { uuid = dvs.Uuid })
	} else {
		netName = standardNet
		if network != nil {
			n, ok := simulator.Map.Get(*network).(mo.Entity)
			if !ok {
				return none, fmt.Errorf("no network %s", network.Value)
			}
			netName = entityName(n.Reference())
		}
	}

	// The cards all go on the same network, each on a port of its own.
	var changes []types.BaseVirtualDeviceConfigSpec
	for i := 0; i < s.cfg.NicsPerVM; i++ {
		var backing types.BaseVirtualDeviceBackingInfo
		if pg != nil {
			backing = &types.VirtualEthernetCardDistributedVirtualPortBackingInfo{
				Port: types.DistributedVirtualSwitchPortConnection{
					SwitchUuid:   uuid,
					PortgroupKey: pgKey,
					PortKey:      s.ports.alloc(uuid),
				},
			}
		} else {
			backing = &types.VirtualEthernetCardNetworkBackingInfo{
				VirtualDeviceDeviceBackingInfo: types.VirtualDeviceDeviceBackingInfo{DeviceName: netName},
			}
		}
		card := esx.EthernetCard
		card.Key += int32(i)
		card.Backing = backing
		connectable := *card.Connectable
		card.Connectable = &connectable
		unit := *card.UnitNumber + int32(i)
		card.UnitNumber = &unit
		var device types.BaseVirtualDevice = &card
		if s.cfg.Variety {
			device = cardFor(place+i, card)
		}
		changes = append(changes, &types.VirtualDeviceConfigSpec{
			Operation: types.VirtualDeviceConfigSpecOperationAdd,
			Device:    device,
		})
	}

	spec := types.VirtualMachineConfigSpec{
		Name:         name,
		GuestId:      string(types.VirtualMachineGuestOsIdentifierOtherGuest),
		NumCPUs:      1,
		MemoryMB:     512,
		Files:        &types.VirtualMachineFileInfo{VmPathName: "[" + datastoreName + "]"},
		DeviceChange: changes,
	}

	poolRef := poolOf(host)
	if poolRef == nil {
		return none, fmt.Errorf("host %s has no resource pool", hostRef.Value)
	}

	if folderRef.Value == "" {
		folderRef = dc.VmFolder
	}
	folder := object.NewFolder(s.vim, folderRef)
	task, err := folder.CreateVM(ctx, spec, object.NewResourcePool(s.vim, *poolRef), object.NewHostSystem(s.vim, hostRef))
	if err != nil {
		return none, err
	}
	info, err := task.WaitForResult(ctx, nil)
	if err != nil {
		return none, err
	}
	ref := info.Result.(types.ManagedObjectReference)
	if powerOn {
		if _, err := object.NewVirtualMachine(s.vim, ref).PowerOn(ctx); err != nil {
			return ref, err
		}
	}
	return ref, nil
}

// poolOf is the root resource pool of a host's compute resource; nil if
// it has none.
func poolOf(host *simulator.HostSystem) *types.ManagedObjectReference {
	var pool *types.ManagedObjectReference
	simulator.Map.WithLock(host, func() {
		switch cr := simulator.Map.Get(*host.Parent).(type) {
		case *mo.ComputeResource:
			pool = cr.ResourcePool
		case *simulator.ClusterComputeResource:
			pool = cr.ResourcePool
		}
	})
	return pool
}

// datacenterOf walks up from an entity to its datacenter; the zero
// reference if there is none.
func datacenterOf(ref types.ManagedObjectReference) types.ManagedObjectReference {
	if ref.Type == "Datacenter" {
		return ref
	}
	for _, p := range ancestors(ref) {
		if p.Type == "Datacenter" {
			return p
		}
	}
	return types.ManagedObjectReference{}
}

func entityName(ref types.ManagedObjectReference) string {
	e, ok := simulator.Map.Get(ref).(mo.Entity)
	if !ok {
		return ""
	}
	var name string
	simulator.Map.WithLock(e, func() { name = e.Entity().Name })
	return name
}

// eventArguments fills the entity arguments of an event about an entity,
// the way vCenter does: a machine's event also names its host, compute
// resource and datacenter.
func eventArguments(ref types.ManagedObjectReference) types.Event {
	var e types.Event
	hostArgs := func(h types.ManagedObjectReference) {
		e.Host = &types.HostEventArgument{Host: h, EntityEventArgument: types.EntityEventArgument{Name: entityName(h)}}
		if host, ok := simulator.Map.Get(h).(*simulator.HostSystem); ok {
			var parent *types.ManagedObjectReference
			simulator.Map.WithLock(host, func() { parent = host.Parent })
			if parent != nil {
				e.ComputeResource = &types.ComputeResourceEventArgument{ComputeResource: *parent, EntityEventArgument: types.EntityEventArgument{Name: entityName(*parent)}}
			}
		}
	}
	switch ref.Type {
	case "VirtualMachine":
		e.Vm = &types.VmEventArgument{Vm: ref, EntityEventArgument: types.EntityEventArgument{Name: entityName(ref)}}
		if vm, ok := simulator.Map.Get(ref).(*simulator.VirtualMachine); ok {
			var h *types.ManagedObjectReference
			simulator.Map.WithLock(vm, func() { h = vm.Runtime.Host })
			if h != nil {
				hostArgs(*h)
			}
		}
	case "HostSystem":
		hostArgs(ref)
	case "ComputeResource", "ClusterComputeResource":
		e.ComputeResource = &types.ComputeResourceEventArgument{ComputeResource: ref, EntityEventArgument: types.EntityEventArgument{Name: entityName(ref)}}
	case dvsInternalType:
		e.Dvs = &types.DvsEventArgument{Dvs: ref, EntityEventArgument: types.EntityEventArgument{Name: entityName(ref)}}
	case "Network", "DistributedVirtualPortgroup":
		e.Net = &types.NetworkEventArgument{Network: ref, EntityEventArgument: types.EntityEventArgument{Name: entityName(ref)}}
	case "Datastore":
		e.Ds = &types.DatastoreEventArgument{Datastore: ref, EntityEventArgument: types.EntityEventArgument{Name: entityName(ref)}}
	}
	if dc := datacenterOf(ref); dc.Value != "" {
		e.Datacenter = &types.DatacenterEventArgument{Datacenter: dc, EntityEventArgument: types.EntityEventArgument{Name: entityName(dc)}}
	}
	return e
}
