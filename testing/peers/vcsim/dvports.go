package main

import (
	"fmt"
	"sort"
	"strconv"
	"sync"
	"time"

	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/methods"
	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
)

// The simulator gives machines' network cards no DV port and has no port
// state. Here every card on a distributed port group gets a numbered port
// key when the machine is made, every member host an uplink port, and the
// ports of a switch are derived from the inventory whenever they are asked
// for. What a port has beyond that (link, MTU, counters, blocked policy) is
// kept per switch and key, set by ReconfigureDVPort_Task and the control
// interface.

// portState is what a port has beyond its place in the inventory.
type portState struct {
	LinkUp        *bool // nil: up while the machine is powered on, and for uplinks
	Mtu           *int32
	Stats         types.DistributedVirtualSwitchPortStatistics
	Blocked       *types.BoolPolicy  // nil: the setting has no blocked policy
	OmitState     bool               // reply without state
	OmitConnectee bool               // reply without connectee
	Connectee     *ConnecteeOverride // nil: the connectee the inventory gives
	Changed       time.Time
}

type portTable struct {
	mu    sync.Mutex
	next  map[string]int // switch uuid -> next free key
	state map[string]map[string]*portState
	since time.Time
}

func newPortTable() *portTable {
	return &portTable{next: make(map[string]int), state: make(map[string]map[string]*portState), since: time.Now()}
}

func (t *portTable) register(uuid string) {
	t.mu.Lock()
	defer t.mu.Unlock()
	if _, ok := t.next[uuid]; !ok {
		t.next[uuid] = 0
		t.state[uuid] = make(map[string]*portState)
	}
}

// alloc hands out the next port key of a switch. Keys are never reused.
func (t *portTable) alloc(uuid string) string {
	t.mu.Lock()
	defer t.mu.Unlock()
	n := t.next[uuid]
	t.next[uuid] = n + 1
	return strconv.Itoa(n)
}

// update changes the state of a port under the table's lock.
func (t *portTable) update(uuid, key string, f func(*portState)) {
	t.mu.Lock()
	defer t.mu.Unlock()
	m := t.state[uuid]
	if m == nil {
		m = make(map[string]*portState)
		t.state[uuid] = m
	}
	st := m[key]
	if st == nil {
		st = &portState{}
		m[key] = st
	}
	f(st)
	st.Changed = time.Now()
}

// reset forgets what was set for ports; keys stay allocated.
func (t *portTable) reset() {
	t.mu.Lock()
	defer t.mu.Unlock()
	for uuid := range t.state {
		t.state[uuid] = make(map[string]*portState)
	}
}

func (t *portTable) get(uuid, key string) portState {
	t.mu.Lock()
	defer t.mu.Unlock()
	if st := t.state[uuid][key]; st != nil {
		return *st
	}
	return portState{Changed: t.since}
}

// dvPort is a port in use: a machine's card, a host's uplink or a host's
// VMkernel NIC.
type dvPort struct {
	Key          string
	PortgroupKey string
	Uplink       bool
	Name         string
	ConnType     string // "vmVnic", "pnic", "hostVmkVnic"
	Entity       types.ManagedObjectReference
	NicKey       string
	Mac          string
	ProxyHost    types.ManagedObjectReference
	PoweredOn    bool
}

// switchPorts lists the ports in use on a switch, by key.
func switchPorts(dvs *simulator.DistributedVirtualSwitch) (string, []dvPort) {
	var uuid string
	var members []types.ManagedObjectReference
	simulator.Map.WithLock(dvs, func() {
		uuid = dvs.Uuid
		members = append(members, dvs.Summary.HostMember...)
	})

	var ports []dvPort
	for _, h := range members {
		host, ok := simulator.Map.Get(h).(*simulator.HostSystem)
		if !ok {
			continue
		}
		simulator.Map.WithLock(host, func() {
			net := host.Config.Network
			macs := map[string]string{}
			for _, p := range net.Pnic {
				macs[p.Device] = p.Mac
			}
			connected := host.Runtime.ConnectionState == types.HostSystemConnectionStateConnected
			for _, ps := range net.ProxySwitch {
				if ps.DvsUuid != uuid {
					continue
				}
				names := map[string]string{}
				for _, kv := range ps.UplinkPort {
					names[kv.Key] = kv.Value
				}
				b, ok := ps.Spec.Backing.(*types.DistributedVirtualSwitchHostMemberPnicBacking)
				if !ok {
					continue
				}
				for _, spec := range b.PnicSpec {
					ports = append(ports, dvPort{
						Key: spec.UplinkPortKey, PortgroupKey: spec.UplinkPortgroupKey, Uplink: true,
						Name: names[spec.UplinkPortKey], ConnType: "pnic", Entity: h, NicKey: spec.PnicDevice,
						Mac: macs[spec.PnicDevice], ProxyHost: h, PoweredOn: connected,
					})
				}
			}
			for _, vnic := range net.Vnic {
				dp := vnic.Spec.DistributedVirtualPort
				if dp == nil || dp.SwitchUuid != uuid || dp.PortKey == "" {
					continue
				}
				ports = append(ports, dvPort{
					Key: dp.PortKey, PortgroupKey: dp.PortgroupKey, ConnType: "hostVmkVnic", Entity: h,
					NicKey: vnic.Device, Mac: vnic.Spec.Mac, ProxyHost: h, PoweredOn: connected,
				})
			}
		})
	}

	for _, e := range simulator.Map.All("VirtualMachine") {
		vm := e.(*simulator.VirtualMachine)
		simulator.Map.WithLock(vm, func() {
			if vm.Config == nil || vm.Runtime.Host == nil {
				return
			}
			for _, d := range vm.Config.Hardware.Device {
				nic, ok := d.(types.BaseVirtualEthernetCard)
				if !ok {
					continue
				}
				card := nic.GetVirtualEthernetCard()
				b, ok := card.Backing.(*types.VirtualEthernetCardDistributedVirtualPortBackingInfo)
				if !ok || b.Port.SwitchUuid != uuid || b.Port.PortKey == "" {
					continue
				}
				ports = append(ports, dvPort{
					Key: b.Port.PortKey, PortgroupKey: b.Port.PortgroupKey, ConnType: "vmVnic", Entity: vm.Self,
					NicKey: strconv.Itoa(int(card.Key)), Mac: card.MacAddress, ProxyHost: *vm.Runtime.Host,
					PoweredOn: vm.Runtime.PowerState == types.VirtualMachinePowerStatePoweredOn,
				})
			}
		})
	}
	sort.Slice(ports, func(i, j int) bool {
		a, _ := strconv.Atoi(ports[i].Key)
		b, _ := strconv.Atoi(ports[j].Key)
		if a != b {
			return a < b
		}
		return ports[i].Key < ports[j].Key
	})
	return uuid, ports
}

// wirePort makes the vim25 record of a port.
func (s *Simulator) wirePort(uuid string, p dvPort) types.DistributedVirtualPort {
	st := s.ports.get(uuid, p.Key)
	// With -variety every port's policies are filled in, as vCenter does.
	inheritBlocked := s.options.get().InheritedBlocked || s.cfg.Variety
	setting := &types.VMwareDVSPortSetting{}
	blocked := false
	switch {
	case st.Blocked != nil:
		b := *st.Blocked
		setting.Blocked = &b
		blocked = b.Value != nil && *b.Value && !b.Inherited
	case inheritBlocked:
		setting.Blocked = &types.BoolPolicy{InheritablePolicy: types.InheritablePolicy{Inherited: true}, Value: types.NewBool(false)}
	}
	linkUp := p.PoweredOn
	if st.LinkUp != nil {
		linkUp = *st.LinkUp
	}
	mtu := int32(1500)
	if st.Mtu != nil {
		mtu = *st.Mtu
	}
	host := p.ProxyHost
	entity := p.Entity
	port := types.DistributedVirtualPort{
		Key:              p.Key,
		Config:           types.DVPortConfigInfo{Name: p.Name, Setting: setting},
		DvsUuid:          uuid,
		PortgroupKey:     p.PortgroupKey,
		ProxyHost:        &host,
		LastStatusChange: st.Changed,
		HostLocalPort:    types.NewBool(false),
	}
	if !st.OmitConnectee {
		port.Connectee = &types.DistributedVirtualSwitchPortConnectee{
			ConnectedEntity: &entity,
			NicKey:          p.NicKey,
			Type:            p.ConnType,
			AddressHint:     p.Mac,
		}
	}
	applyConnectee(&port, st.Connectee)
	if !st.OmitState {
		port.State = &types.DVPortState{
			RuntimeInfo: &types.DVPortStatus{
				LinkUp:       linkUp,
				Blocked:      blocked,
				TrunkingMode: types.NewBool(false),
				Mtu:          mtu,
				MacAddress:   p.Mac,
			},
			Stats: st.Stats,
		}
	}
	return port
}

// resolveSwitch finds the distributed switch of a DV port method. A _this
// without a value goes to the switch named by the emptyDvsRef option, if set.
func (s *Simulator) resolveSwitch(this types.ManagedObjectReference) (*simulator.DistributedVirtualSwitch, bool) {
	if this.Value == "" {
		if v := s.options.get().EmptyDvsRef; v != "" {
			this = types.ManagedObjectReference{Type: dvsInternalType, Value: v}
		}
	}
	if this.Type != dvsInternalType {
		return nil, false
	}
	dvs, ok := simulator.Map.Get(this).(*simulator.DistributedVirtualSwitch)
	return dvs, ok
}

func boolIn(list []bool, v bool) bool {
	for _, x := range list {
		if x == v {
			return true
		}
	}
	return false
}

func stringIn(list []string, v string) bool {
	for _, x := range list {
		if x == v {
			return true
		}
	}
	return false
}

// portMatches applies a port criteria. Every listed port is connected.
func portMatches(c *types.DistributedVirtualSwitchPortCriteria, keys map[string]bool, p dvPort, linkUp bool) bool {
	if c == nil {
		return true
	}
	if c.Connected != nil && !*c.Connected {
		return false
	}
	if c.Active != nil && *c.Active != linkUp {
		return false
	}
	if c.UplinkPort != nil && *c.UplinkPort != p.Uplink {
		return false
	}
	if len(c.PortKey) != 0 && !keys[p.Key] {
		return false
	}
	if len(c.PortgroupKey) != 0 {
		in := stringIn(c.PortgroupKey, p.PortgroupKey)
		if c.Inside != nil && !*c.Inside {
			in = !in
		}
		if !in {
			return false
		}
	}
	if len(c.Host) != 0 && simulator.FindReference(c.Host, p.ProxyHost) == nil {
		return false
	}
	return true
}

// fetchDVPorts serves DistributedVirtualSwitch.FetchDVPorts.
func (s *Simulator) fetchDVPorts(ctx *simulator.Context, sess session, m *simulator.Method) soap.HasFault {
	req := m.Body.(*types.FetchDVPorts)
	body := new(methods.FetchDVPortsBody)
	dvs, ok := s.resolveSwitch(req.This)
	if !ok {
		body.Fault_ = objectNotFound(req.This)
		return body
	}
	uuid, ports := switchPorts(dvs)
	keys := map[string]bool{}
	if req.Criteria != nil {
		for _, k := range req.Criteria.PortKey {
			keys[k] = true
		}
	}
	res := &types.FetchDVPortsResponse{}
	for _, p := range ports {
		wp := s.wirePort(uuid, p)
		linkUp := wp.State != nil && wp.State.RuntimeInfo != nil && wp.State.RuntimeInfo.LinkUp
		if portMatches(req.Criteria, keys, p, linkUp) {
			res.Returnval = append(res.Returnval, wp)
		}
	}
	body.Res = res
	return body
}

func policyJSON(p *types.BoolPolicy) *BoolPolicyJS {
	if p == nil {
		return nil
	}
	inherited := p.Inherited
	return &BoolPolicyJS{Inherited: &inherited, Value: p.Value}
}

// reconfigureDVPort serves DistributedVirtualSwitch.ReconfigureDVPort_Task.
// Each call is recorded, also one that fails; of the settings only the
// blocked policy has an effect here.
func (s *Simulator) reconfigureDVPort(ctx *simulator.Context, sess session, m *simulator.Method) soap.HasFault {
	req := m.Body.(*types.ReconfigureDVPort_Task)
	body := new(methods.ReconfigureDVPort_TaskBody)
	rec := PortReconfig{Time: time.Now(), User: sess.User, Dvs: wireRef(req.This), Ports: []PortSetting{}}
	for _, spec := range req.Port {
		ps := PortSetting{Operation: spec.Operation, Key: spec.Key}
		if spec.Setting != nil {
			ps.Blocked = policyJSON(spec.Setting.GetDVPortSetting().Blocked)
		}
		rec.Ports = append(rec.Ports, ps)
	}
	dvs, ok := s.resolveSwitch(req.This)
	rec.Found = ok
	if !ok {
		body.Fault_ = objectNotFound(req.This)
		rec.Fault = body.Fault_.String
		s.records.addReconfig(rec)
		return body
	}

	task := simulator.CreateTask(dvs, "reconfigureDVPort", func(*simulator.Task) (types.AnyType, types.BaseMethodFault) {
		uuid, ports := switchPorts(dvs)
		known := map[string]bool{}
		for _, p := range ports {
			known[p.Key] = true
		}
		for _, spec := range req.Port {
			if spec.Operation != string(types.ConfigSpecOperationEdit) {
				return nil, &types.NotSupported{}
			}
			if !known[spec.Key] {
				return nil, &types.NotFound{}
			}
		}
		for _, spec := range req.Port {
			if spec.Setting == nil {
				continue
			}
			if b := spec.Setting.GetDVPortSetting().Blocked; b != nil {
				policy := *b
				s.ports.update(uuid, spec.Key, func(st *portState) { st.Blocked = &policy })
			}
		}
		return nil, nil
	})
	ref := task.Run()
	rec.Task = optWireRef(&ref)
	if task.Info.Error != nil {
		rec.Fault = fmt.Sprintf("%T", task.Info.Error.Fault)
	}
	s.records.addReconfig(rec)
	body.Res = &types.ReconfigureDVPort_TaskResponse{Returnval: ref}
	return body
}

// refreshDVPortState serves DistributedVirtualSwitch.RefreshDVPortState.
// Port state here is always current, so the call only leaves its record.
func (s *Simulator) refreshDVPortState(ctx *simulator.Context, sess session, m *simulator.Method) soap.HasFault {
	req := m.Body.(*types.RefreshDVPortState)
	body := new(methods.RefreshDVPortStateBody)
	rec := PortRefresh{Time: time.Now(), User: sess.User, Dvs: wireRef(req.This), PortKeys: append([]string{}, req.PortKeys...)}
	_, ok := s.resolveSwitch(req.This)
	rec.Found = ok
	if !ok {
		body.Fault_ = objectNotFound(req.This)
		rec.Fault = body.Fault_.String
	} else {
		body.Res = new(types.RefreshDVPortStateResponse)
	}
	s.records.addRefresh(rec)
	return body
}
