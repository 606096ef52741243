package main

import (
	"context"
	"fmt"
	"time"

	"github.com/vmware/govmomi/object"
	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/mo"
	"github.com/vmware/govmomi/vim25/types"
)

// The inventory as the control interface shows it. References are given by
// value ("vm-42"); each object also tells its vCenter type.

type DatacenterView struct {
	Ref             string `json:"ref"`
	Name            string `json:"name"`
	HostFolder      string `json:"hostFolder"`
	VmFolder        string `json:"vmFolder"`
	NetworkFolder   string `json:"networkFolder"`
	DatastoreFolder string `json:"datastoreFolder"`
}

type ComputeView struct {
	Ref          string   `json:"ref"`
	Type         string   `json:"type"` // "ComputeResource" or "ClusterComputeResource"
	Name         string   `json:"name"`
	Parent       string   `json:"parent"`
	Datacenter   string   `json:"datacenter"`
	Hosts        []string `json:"hosts"`
	ResourcePool string   `json:"resourcePool"`
}

type PnicView struct {
	Device        string `json:"device"`
	Mac           string `json:"mac"`
	Pci           string `json:"pci"`
	Vswitch       string `json:"vswitch,omitempty"` // key of the standard switch that bonds it
	DvsUuid       string `json:"dvsUuid,omitempty"` // distributed switch whose uplink it is
	UplinkPortKey string `json:"uplinkPortKey,omitempty"`
}

type VmknicView struct {
	Device       string `json:"device"`
	Mac          string `json:"mac"`
	Ip           string `json:"ip"`
	SubnetMask   string `json:"subnetMask"`
	Mtu          int32  `json:"mtu"`
	Portgroup    string `json:"portgroup,omitempty"`
	DvsUuid      string `json:"dvsUuid,omitempty"`
	PortKey      string `json:"portKey,omitempty"`
	PortgroupKey string `json:"portgroupKey,omitempty"`
}

type HostPortgroupView struct {
	Key     string `json:"key"`
	Name    string `json:"name"`
	Vswitch string `json:"vswitch"`
	VlanId  int32  `json:"vlanId"`
}

type HostView struct {
	Ref             string              `json:"ref"`
	Type            string              `json:"type"`
	Name            string              `json:"name"`
	Parent          string              `json:"parent"`
	ParentType      string              `json:"parentType"`
	Datacenter      string              `json:"datacenter"`
	NetworkSystem   string              `json:"networkSystem"`
	ConnectionState string              `json:"connectionState"`
	Pnics           []PnicView          `json:"pnics"`
	Vmknics         []VmknicView        `json:"vmknics"`
	Portgroups      []HostPortgroupView `json:"portgroups"`
	Vms             []string            `json:"vms"`
	Dvs             []string            `json:"dvs"`
}

type VnicView struct {
	Key          int32  `json:"key"`
	Label        string `json:"label"`
	Mac          string `json:"mac"`
	Network      string `json:"network,omitempty"` // standard network name
	Portgroup    string `json:"portgroup,omitempty"`
	PortgroupKey string `json:"portgroupKey,omitempty"`
	PortKey      string `json:"portKey,omitempty"`
	SwitchUuid   string `json:"switchUuid,omitempty"`
}

type VMView struct {
	Ref        string     `json:"ref"`
	Type       string     `json:"type"`
	Name       string     `json:"name"`
	Host       string     `json:"host"`
	PowerState string     `json:"powerState"`
	Datacenter string     `json:"datacenter"`
	Nics       []VnicView `json:"nics"`
}

type NetworkView struct {
	Ref        string `json:"ref"`
	Type       string `json:"type"`
	Name       string `json:"name"`
	Datacenter string `json:"datacenter"`
}

type PortgroupView struct {
	Ref        string      `json:"ref"`
	Type       string      `json:"type"`
	Key        string      `json:"key"`
	Name       string      `json:"name"`
	Dvs        string      `json:"dvs"`
	Datacenter string      `json:"datacenter"`
	Uplink     bool        `json:"uplink"`
	VlanId     *int32      `json:"vlanId,omitempty"`
	Trunk      []VlanRange `json:"trunk,omitempty"`
}

type VlanRange struct {
	Start int32 `json:"start"`
	End   int32 `json:"end"`
}

type DvsView struct {
	Ref              string   `json:"ref"`
	Type             string   `json:"type"`
	Name             string   `json:"name"`
	Uuid             string   `json:"uuid"`
	Datacenter       string   `json:"datacenter"`
	Hosts            []string `json:"hosts"`
	Portgroups       []string `json:"portgroups"`
	UplinkPortgroups []string `json:"uplinkPortgroups"`
}

type InventoryView struct {
	RootFolder       string           `json:"rootFolder"`
	Datacenters      []DatacenterView `json:"datacenters"`
	ComputeResources []ComputeView    `json:"computeResources"`
	Hosts            []HostView       `json:"hosts"`
	Vms              []VMView         `json:"vms"`
	Networks         []NetworkView    `json:"networks"`
	Portgroups       []PortgroupView  `json:"portgroups"`
	Dvs              []DvsView        `json:"dvs"`
}

func refValues(refs []types.ManagedObjectReference) []string {
	out := make([]string, 0, len(refs))
	for _, r := range refs {
		out = append(out, r.Value)
	}
	return out
}

func optValue(r *types.ManagedObjectReference) string {
	if r == nil {
		return ""
	}
	return r.Value
}

func (s *Simulator) inventory() InventoryView {
	inv := InventoryView{
		RootFolder:       s.vim.ServiceContent.RootFolder.Value,
		Datacenters:      []DatacenterView{},
		ComputeResources: []ComputeView{},
		Hosts:            []HostView{},
		Vms:              []VMView{},
		Networks:         []NetworkView{},
		Portgroups:       []PortgroupView{},
		Dvs:              []DvsView{},
	}
	for _, e := range sortedEntities("Datacenter") {
		dc := e.(*simulator.Datacenter)
		simulator.Map.WithLock(dc, func() {
			inv.Datacenters = append(inv.Datacenters, DatacenterView{
				Ref: dc.Self.Value, Name: dc.Name, HostFolder: dc.HostFolder.Value, VmFolder: dc.VmFolder.Value,
				NetworkFolder: dc.NetworkFolder.Value, DatastoreFolder: dc.DatastoreFolder.Value,
			})
		})
	}
	for _, kind := range []string{"ComputeResource", "ClusterComputeResource"} {
		for _, e := range sortedEntities(kind) {
			var cr *mo.ComputeResource
			switch x := e.(type) {
			case *mo.ComputeResource:
				cr = x
			case *simulator.ClusterComputeResource:
				cr = &x.ComputeResource
			default:
				continue
			}
			v := ComputeView{Ref: cr.Self.Value, Type: cr.Self.Type, Datacenter: datacenterOf(cr.Self).Value}
			simulator.Map.WithLock(e, func() {
				v.Name, v.Parent, v.Hosts, v.ResourcePool = cr.Name, optValue(cr.Parent), refValues(cr.Host), optValue(cr.ResourcePool)
			})
			inv.ComputeResources = append(inv.ComputeResources, v)
		}
	}
	for _, e := range sortedEntities("HostSystem") {
		inv.Hosts = append(inv.Hosts, hostView(e.(*simulator.HostSystem)))
	}
	for _, e := range sortedEntities("VirtualMachine") {
		inv.Vms = append(inv.Vms, vmView(e.(*simulator.VirtualMachine)))
	}
	for _, e := range sortedEntities("Network") {
		inv.Networks = append(inv.Networks, NetworkView{
			Ref: e.Reference().Value, Type: "Network", Name: entityName(e.Reference()), Datacenter: datacenterOf(e.Reference()).Value,
		})
	}
	for _, e := range sortedEntities("DistributedVirtualPortgroup") {
		inv.Portgroups = append(inv.Portgroups, portgroupView(e.(*simulator.DistributedVirtualPortgroup)))
	}
	for _, e := range sortedEntities(dvsInternalType) {
		inv.Dvs = append(inv.Dvs, dvsView(e.(*simulator.DistributedVirtualSwitch)))
	}
	return inv
}

func hostView(h *simulator.HostSystem) HostView {
	v := HostView{Ref: h.Self.Value, Type: "HostSystem", Datacenter: datacenterOf(h.Self).Value,
		Pnics: []PnicView{}, Vmknics: []VmknicView{}, Portgroups: []HostPortgroupView{}}
	simulator.Map.WithLock(h, func() {
		v.Name = h.Name
		if h.Parent != nil {
			v.Parent, v.ParentType = h.Parent.Value, h.Parent.Type
		}
		v.NetworkSystem = optValue(h.ConfigManager.NetworkSystem)
		v.ConnectionState = string(h.Runtime.ConnectionState)
		v.Vms = refValues(h.Vm)
		net := h.Config.Network
		bonded := map[string]string{}
		for _, vs := range net.Vswitch {
			if b, ok := vs.Spec.Bridge.(*types.HostVirtualSwitchBondBridge); ok {
				for _, d := range b.NicDevice {
					bonded[d] = vs.Key
				}
			}
		}
		uplinks := map[string][2]string{}
		for _, ps := range net.ProxySwitch {
			if b, ok := ps.Spec.Backing.(*types.DistributedVirtualSwitchHostMemberPnicBacking); ok {
				for _, spec := range b.PnicSpec {
					uplinks[spec.PnicDevice] = [2]string{ps.DvsUuid, spec.UplinkPortKey}
				}
			}
		}
		for _, p := range net.Pnic {
			pv := PnicView{Device: p.Device, Mac: p.Mac, Pci: p.Pci}
			if u, ok := uplinks[p.Device]; ok {
				pv.DvsUuid, pv.UplinkPortKey = u[0], u[1]
			} else {
				pv.Vswitch = bonded[p.Device]
			}
			v.Pnics = append(v.Pnics, pv)
		}
		for _, n := range net.Vnic {
			kv := VmknicView{Device: n.Device, Mac: n.Spec.Mac, Mtu: n.Spec.Mtu, Portgroup: n.Portgroup}
			if ip := n.Spec.Ip; ip != nil {
				kv.Ip, kv.SubnetMask = ip.IpAddress, ip.SubnetMask
			}
			if dp := n.Spec.DistributedVirtualPort; dp != nil {
				kv.DvsUuid, kv.PortKey, kv.PortgroupKey = dp.SwitchUuid, dp.PortKey, dp.PortgroupKey
			}
			v.Vmknics = append(v.Vmknics, kv)
		}
		for _, pg := range net.Portgroup {
			v.Portgroups = append(v.Portgroups, HostPortgroupView{Key: pg.Key, Name: pg.Spec.Name, Vswitch: pg.Vswitch, VlanId: pg.Spec.VlanId})
		}
	})
	v.Dvs = []string{}
	for _, dvs := range switchesOfHost(h.Self) {
		v.Dvs = append(v.Dvs, dvs.Self.Value)
	}
	return v
}

func vmView(vm *simulator.VirtualMachine) VMView {
	v := VMView{Ref: vm.Self.Value, Type: "VirtualMachine", Datacenter: datacenterOf(vm.Self).Value, Nics: []VnicView{}}
	simulator.Map.WithLock(vm, func() {
		v.Name = vm.Name
		v.Host = optValue(vm.Runtime.Host)
		v.PowerState = string(vm.Runtime.PowerState)
		if vm.Config == nil {
			return
		}
		for _, d := range vm.Config.Hardware.Device {
			nic, ok := d.(types.BaseVirtualEthernetCard)
			if !ok {
				continue
			}
			card := nic.GetVirtualEthernetCard()
			nv := VnicView{Key: card.Key, Mac: card.MacAddress}
			if card.DeviceInfo != nil {
				nv.Label = card.DeviceInfo.GetDescription().Label
			}
			switch b := card.Backing.(type) {
			case *types.VirtualEthernetCardDistributedVirtualPortBackingInfo:
				nv.PortgroupKey, nv.Portgroup = b.Port.PortgroupKey, b.Port.PortgroupKey
				nv.PortKey, nv.SwitchUuid = b.Port.PortKey, b.Port.SwitchUuid
			case *types.VirtualEthernetCardNetworkBackingInfo:
				nv.Network = b.DeviceName
			}
			v.Nics = append(v.Nics, nv)
		}
	})
	return v
}

func portgroupView(pg *simulator.DistributedVirtualPortgroup) PortgroupView {
	v := PortgroupView{Ref: pg.Self.Value, Type: "DistributedVirtualPortgroup", Datacenter: datacenterOf(pg.Self).Value}
	simulator.Map.WithLock(pg, func() {
		v.Key, v.Name = pg.Key, pg.Name
		v.Dvs = optValue(pg.Config.DistributedVirtualSwitch)
		v.Uplink = pg.Config.Uplink != nil && *pg.Config.Uplink
		if setting, ok := pg.Config.DefaultPortConfig.(*types.VMwareDVSPortSetting); ok {
			switch vlan := setting.Vlan.(type) {
			case *types.VmwareDistributedVirtualSwitchVlanIdSpec:
				id := vlan.VlanId
				v.VlanId = &id
			case *types.VmwareDistributedVirtualSwitchTrunkVlanSpec:
				v.Trunk = []VlanRange{}
				for _, r := range vlan.VlanId {
					v.Trunk = append(v.Trunk, VlanRange{r.Start, r.End})
				}
			}
		}
	})
	return v
}

func dvsView(dvs *simulator.DistributedVirtualSwitch) DvsView {
	v := DvsView{Ref: dvs.Self.Value, Type: dvsWireType, Datacenter: datacenterOf(dvs.Self).Value}
	simulator.Map.WithLock(dvs, func() {
		v.Name, v.Uuid = dvs.Name, dvs.Uuid
		v.Hosts = refValues(dvs.Summary.HostMember)
		v.Portgroups = refValues(dvs.Portgroup)
		v.UplinkPortgroups = []string{}
		if cfg, ok := dvs.Config.(*types.VMwareDVSConfigInfo); ok {
			v.UplinkPortgroups = refValues(cfg.UplinkPortgroup)
		}
	})
	return v
}

// Lookups by reference value.

func (s *Simulator) findVM(value string) (*simulator.VirtualMachine, error) {
	vm, ok := simulator.Map.Get(types.ManagedObjectReference{Type: "VirtualMachine", Value: value}).(*simulator.VirtualMachine)
	if !ok {
		return nil, notFoundError{"virtual machine", value}
	}
	return vm, nil
}

func (s *Simulator) findHost(value string) (*simulator.HostSystem, error) {
	h, ok := simulator.Map.Get(types.ManagedObjectReference{Type: "HostSystem", Value: value}).(*simulator.HostSystem)
	if !ok {
		return nil, notFoundError{"host", value}
	}
	return h, nil
}

func (s *Simulator) findSwitch(value string) (*simulator.DistributedVirtualSwitch, error) {
	d, ok := simulator.Map.Get(types.ManagedObjectReference{Type: dvsInternalType, Value: value}).(*simulator.DistributedVirtualSwitch)
	if !ok {
		return nil, notFoundError{"distributed switch", value}
	}
	return d, nil
}

func (s *Simulator) findPortgroup(value string) (*simulator.DistributedVirtualPortgroup, error) {
	pg, ok := simulator.Map.Get(types.ManagedObjectReference{Type: "DistributedVirtualPortgroup", Value: value}).(*simulator.DistributedVirtualPortgroup)
	if !ok {
		return nil, notFoundError{"port group", value}
	}
	return pg, nil
}

// findNetwork resolves a network for a new machine: a port group or a
// standard network, by reference value.
func (s *Simulator) findNetwork(value string) (*types.ManagedObjectReference, error) {
	for _, kind := range []string{"DistributedVirtualPortgroup", "Network"} {
		ref := types.ManagedObjectReference{Type: kind, Value: value}
		if simulator.Map.Get(ref) != nil {
			return &ref, nil
		}
	}
	return nil, notFoundError{"network", value}
}

type notFoundError struct{ what, ref string }

func (e notFoundError) Error() string { return fmt.Sprintf("no %s %q", e.what, e.ref) }

// conflictError is a change that vCenter refuses.
type conflictError struct{ msg string }

func (e conflictError) Error() string { return e.msg }

// waitTask waits for a task of the in-process client; a task error becomes
// a conflictError.
func waitTask(task *object.Task, err error) (*types.TaskInfo, error) {
	if err != nil {
		return nil, err
	}
	ctx, cancel := context.WithTimeout(context.Background(), time.Minute)
	defer cancel()
	info, err := task.WaitForResult(ctx, nil)
	if err != nil {
		return info, conflictError{err.Error()}
	}
	return info, nil
}

// Inventory changes, made with the simulator's own methods so that property
// collectors see them as they would see a vCenter user's.

func (s *Simulator) setPower(ctx context.Context, value, state string) error {
	vm, err := s.findVM(value)
	if err != nil {
		return err
	}
	o := object.NewVirtualMachine(s.vim, vm.Self)
	var current types.VirtualMachinePowerState
	simulator.Map.WithLock(vm, func() { current = vm.Runtime.PowerState })
	if string(current) == state {
		return nil
	}
	switch types.VirtualMachinePowerState(state) {
	case types.VirtualMachinePowerStatePoweredOn:
		_, err = waitTask(o.PowerOn(ctx))
	case types.VirtualMachinePowerStatePoweredOff:
		_, err = waitTask(o.PowerOff(ctx))
	case types.VirtualMachinePowerStateSuspended:
		if current != types.VirtualMachinePowerStatePoweredOn {
			return conflictError{"only a powered-on machine can be suspended"}
		}
		_, err = waitTask(o.Suspend(ctx))
	default:
		return fmt.Errorf("unknown power state %q: use poweredOn, poweredOff or suspended", state)
	}
	return err
}

func (s *Simulator) renameEntity(ctx context.Context, ref types.ManagedObjectReference, name string) error {
	if name == "" {
		return fmt.Errorf("the new name is empty")
	}
	_, err := waitTask(object.NewCommon(s.vim, ref).Rename(ctx, name))
	return err
}

func (s *Simulator) destroyVM(ctx context.Context, value string) error {
	if err := s.setPower(ctx, value, string(types.VirtualMachinePowerStatePoweredOff)); err != nil {
		return err
	}
	vm, err := s.findVM(value)
	if err != nil {
		return err
	}
	_, err = waitTask(object.NewVirtualMachine(s.vim, vm.Self).Destroy(ctx))
	return err
}

func (s *Simulator) migrateVM(ctx context.Context, value, hostValue string) error {
	vm, err := s.findVM(value)
	if err != nil {
		return err
	}
	host, err := s.findHost(hostValue)
	if err != nil {
		return err
	}
	if datacenterOf(vm.Self) != datacenterOf(host.Self) {
		return conflictError{"the host is in another datacenter"}
	}
	hostRef := host.Self
	spec := types.VirtualMachineRelocateSpec{Host: &hostRef, Pool: poolOf(host)}
	_, err = waitTask(object.NewVirtualMachine(s.vim, vm.Self).Relocate(ctx, spec, types.VirtualMachineMovePriorityDefaultPriority))
	return err
}

// addHost adds a host to a cluster, or as a standalone host to a
// datacenter, mounts the datacenter's datastore and, if asked, joins it to
// the datacenter's distributed switches with vmnic1 as uplink.
func (s *Simulator) addHost(ctx context.Context, name, cluster, datacenter string, joinDvs bool) (*simulator.HostSystem, error) {
	if name == "" {
		return nil, fmt.Errorf("the host needs a name")
	}
	var task *object.Task
	var err error
	var dcRef types.ManagedObjectReference
	spec := types.HostConnectSpec{HostName: name}
	switch {
	case cluster != "":
		ref := types.ManagedObjectReference{Type: "ClusterComputeResource", Value: cluster}
		if _, ok := simulator.Map.Get(ref).(*simulator.ClusterComputeResource); !ok {
			return nil, notFoundError{"cluster", cluster}
		}
		dcRef = datacenterOf(ref)
		task, err = object.NewClusterComputeResource(s.vim, ref).AddHost(ctx, spec, true, nil, nil)
	case datacenter != "":
		ref := types.ManagedObjectReference{Type: "Datacenter", Value: datacenter}
		dc, ok := simulator.Map.Get(ref).(*simulator.Datacenter)
		if !ok {
			return nil, notFoundError{"datacenter", datacenter}
		}
		dcRef = ref
		task, err = object.NewFolder(s.vim, dc.HostFolder).AddStandaloneHost(ctx, spec, true, nil, nil)
	default:
		return nil, fmt.Errorf("name a cluster or a datacenter")
	}
	info, err := waitTask(task, err)
	if err != nil {
		return nil, err
	}
	hostRef := info.Result.(types.ManagedObjectReference)
	host := simulator.Map.Get(hostRef).(*simulator.HostSystem)
	s.giveHostIdentity(host, refNumber(hostRef.Value)+1000)

	if err := s.mountDatastores(ctx, hostRef, dcRef); err != nil {
		return nil, err
	}

	if joinDvs {
		for _, e := range sortedEntities(dvsInternalType) {
			dvs := e.(*simulator.DistributedVirtualSwitch)
			if datacenterOf(dvs.Self) != dcRef {
				continue
			}
			cfg := &types.DVSConfigSpec{Host: []types.DistributedVirtualSwitchHostMemberConfigSpec{{
				Operation: string(types.ConfigSpecOperationAdd),
				Host:      hostRef,
			}}}
			if _, err := waitTask(object.NewDistributedVirtualSwitch(s.vim, dvs.Self).Reconfigure(ctx, cfg)); err != nil {
				return nil, err
			}
			s.attachUplink(host, dvs)
		}
	}
	// The host was announced before its network was complete.
	s.publishHostNetwork(host)
	return host, nil
}

// mountDatastores mounts the datastores of a datacenter on a new host.
func (s *Simulator) mountDatastores(ctx context.Context, hostRef, dcRef types.ManagedObjectReference) error {
	for _, e := range sortedEntities("Datastore") {
		ds := e.(*simulator.Datastore)
		if datacenterOf(ds.Self) != dcRef {
			continue
		}
		var url string
		simulator.Map.WithLock(ds, func() { url = ds.Info.GetDatastoreInfo().Url })
		dss, err := object.NewHostSystem(s.vim, hostRef).ConfigManager().DatastoreSystem(ctx)
		if err == nil {
			_, err = dss.CreateLocalDatastore(ctx, entityName(ds.Self), url)
		}
		if err != nil {
			return fmt.Errorf("mounting the datastore: %w", err)
		}
	}
	return nil
}

func (s *Simulator) publishHostNetwork(host *simulator.HostSystem) {
	var net *types.HostNetworkInfo
	simulator.Map.WithLock(host, func() { net = host.Config.Network })
	simulator.Map.Update(host, []types.PropertyChange{{Name: "config.network", Val: net}})
}

// removeHost takes a host out of the inventory. A host with machines is
// refused unless force is set, which destroys them first.
func (s *Simulator) removeHost(ctx context.Context, value string, force bool) error {
	host, err := s.findHost(value)
	if err != nil {
		return err
	}
	var vms []types.ManagedObjectReference
	var parent types.ManagedObjectReference
	simulator.Map.WithLock(host, func() {
		vms = append(vms, host.Vm...)
		parent = *host.Parent
	})
	if len(vms) > 0 && !force {
		return conflictError{fmt.Sprintf("host %s has %d virtual machines", value, len(vms))}
	}
	for _, vm := range vms {
		if err := s.destroyVM(ctx, vm.Value); err != nil {
			return err
		}
	}
	for _, dvs := range switchesOfHost(host.Self) {
		var members []types.ManagedObjectReference
		simulator.Map.WithLock(dvs, func() {
			simulator.RemoveReference(&dvs.Summary.HostMember, host.Self)
			members = append(members, dvs.Summary.HostMember...)
			for _, pgRef := range dvs.Portgroup {
				if pg, ok := simulator.Map.Get(pgRef).(*simulator.DistributedVirtualPortgroup); ok {
					simulator.RemoveReference(&pg.Host, host.Self)
				}
			}
		})
		simulator.Map.Update(dvs, []types.PropertyChange{{Name: "summary.hostMember", Val: members}})
	}
	if _, err := waitTask(object.NewHostSystem(s.vim, host.Self).Destroy(ctx)); err != nil {
		return err
	}

	switch cr := simulator.Map.Get(parent).(type) {
	case *simulator.ClusterComputeResource:
		var hosts []types.ManagedObjectReference
		simulator.Map.WithLock(cr, func() {
			simulator.RemoveReference(&cr.Host, host.Self)
			hosts = append(hosts, cr.Host...)
		})
		simulator.Map.Update(cr, []types.PropertyChange{{Name: "host", Val: hosts}})
	case *mo.ComputeResource:
		// A standalone host goes with its compute resource, as in vCenter.
		folder, ok := simulator.Map.Get(*cr.Parent).(*simulator.Folder)
		if cr.ResourcePool != nil {
			simulator.Map.Remove(*cr.ResourcePool)
		}
		simulator.Map.Remove(cr.Self)
		if ok {
			var children []types.ManagedObjectReference
			simulator.Map.WithLock(folder, func() {
				simulator.RemoveReference(&folder.ChildEntity, cr.Self)
				children = append(children, folder.ChildEntity...)
			})
			simulator.Map.Update(folder, []types.PropertyChange{{Name: "childEntity", Val: children}})
		}
	}
	return nil
}

// createPortgroup adds a distributed port group with a VLAN (0: untagged).
func (s *Simulator) createPortgroup(ctx context.Context, dvsValue, name string, vlan int32) (*simulator.DistributedVirtualPortgroup, error) {
	dvs, err := s.findSwitch(dvsValue)
	if err != nil {
		return nil, err
	}
	if name == "" {
		return nil, fmt.Errorf("the port group needs a name")
	}
	if vlan < 0 || vlan > 4094 {
		return nil, fmt.Errorf("VLAN %d is out of range", vlan)
	}
	spec := types.DVPortgroupConfigSpec{
		Name:     name,
		Type:     string(types.DistributedVirtualPortgroupPortgroupTypeEarlyBinding),
		NumPorts: 128,
		DefaultPortConfig: &types.VMwareDVSPortSetting{
			Vlan: &types.VmwareDistributedVirtualSwitchVlanIdSpec{VlanId: vlan},
		},
	}
	if _, err := waitTask(object.NewDistributedVirtualSwitch(s.vim, dvs.Self).AddPortgroup(ctx, []types.DVPortgroupConfigSpec{spec})); err != nil {
		return nil, err
	}
	var pgs []types.ManagedObjectReference
	simulator.Map.WithLock(dvs, func() { pgs = append(pgs, dvs.Portgroup...) })
	for _, ref := range pgs {
		if pg, ok := simulator.Map.Get(ref).(*simulator.DistributedVirtualPortgroup); ok && entityName(ref) == name {
			simulator.Map.WithLock(pg, func() { pg.Config.Uplink = types.NewBool(false) })
			return pg, nil
		}
	}
	return nil, fmt.Errorf("the new port group %q is not on the switch", name)
}

// destroyPortgroup removes a distributed port group. vCenter refuses while
// machines use it; force destroys it all the same.
func (s *Simulator) destroyPortgroup(ctx context.Context, value string, force bool) error {
	pg, err := s.findPortgroup(value)
	if err != nil {
		return err
	}
	users := 0
	for _, e := range simulator.Map.All("VirtualMachine") {
		vm := e.(*simulator.VirtualMachine)
		simulator.Map.WithLock(vm, func() {
			if simulator.FindReference(vm.Network, pg.Self) != nil {
				users++
			}
		})
	}
	if users > 0 && !force {
		return conflictError{fmt.Sprintf("port group %s is in use by %d virtual machines", value, users)}
	}
	_, err = waitTask(object.NewDistributedVirtualPortgroup(s.vim, pg.Self).Destroy(ctx))
	return err
}
