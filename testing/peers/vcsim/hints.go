package main

import (
	"sort"
	"sync"

	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/methods"
	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
)

// CdpHint is what a NIC's neighbour announced by CDP.
type CdpHint struct {
	DevId      string `json:"devId"`
	PortId     string `json:"portId"`
	MgmtAddr   string `json:"mgmtAddr,omitempty"`
	SystemName string `json:"systemName,omitempty"`
}

// LldpHint is what a NIC's neighbour announced by LLDP. Parameters go out
// as LLDP parameters, e.g. "Management Address" and "System Name".
type LldpHint struct {
	ChassisId  string            `json:"chassisId"`
	PortId     string            `json:"portId"`
	Parameters map[string]string `json:"parameters,omitempty"`
}

// NicHint is the neighbour of one physical NIC of a host.
type NicHint struct {
	Host   string    `json:"host"`   // host reference value
	Device string    `json:"device"` // e.g. "vmnic0"
	Cdp    *CdpHint  `json:"cdp"`
	Lldp   *LldpHint `json:"lldp"`
}

type hintTable struct {
	mu    sync.Mutex
	hints map[string]map[string]NicHint // host -> device -> hint
}

func newHintTable() *hintTable { return &hintTable{hints: make(map[string]map[string]NicHint)} }

// set replaces the hint of a NIC; one without CDP and LLDP clears it.
func (t *hintTable) set(h NicHint) {
	t.mu.Lock()
	defer t.mu.Unlock()
	if h.Cdp == nil && h.Lldp == nil {
		delete(t.hints[h.Host], h.Device)
		return
	}
	if t.hints[h.Host] == nil {
		t.hints[h.Host] = make(map[string]NicHint)
	}
	t.hints[h.Host][h.Device] = h
}

func (t *hintTable) get(host, device string) (NicHint, bool) {
	t.mu.Lock()
	defer t.mu.Unlock()
	h, ok := t.hints[host][device]
	return h, ok
}

func (t *hintTable) list() []NicHint {
	t.mu.Lock()
	defer t.mu.Unlock()
	out := []NicHint{}
	for _, m := range t.hints {
		for _, h := range m {
			out = append(out, h)
		}
	}
	sort.Slice(out, func(i, j int) bool {
		if out[i].Host != out[j].Host {
			return out[i].Host < out[j].Host
		}
		return out[i].Device < out[j].Device
	})
	return out
}

func (t *hintTable) clear() {
	t.mu.Lock()
	t.hints = make(map[string]map[string]NicHint)
	t.mu.Unlock()
}

func (h NicHint) wire() types.PhysicalNicHintInfo {
	info := types.PhysicalNicHintInfo{Device: h.Device}
	if c := h.Cdp; c != nil {
		info.ConnectedSwitchPort = &types.PhysicalNicCdpInfo{
			CdpVersion: 2,
			Timeout:    60,
			Ttl:        180,
			DevId:      c.DevId,
			PortId:     c.PortId,
			MgmtAddr:   c.MgmtAddr,
			SystemName: c.SystemName,
		}
	}
	if l := h.Lldp; l != nil {
		lldp := &types.LinkLayerDiscoveryProtocolInfo{ChassisId: l.ChassisId, PortId: l.PortId, TimeToLive: 120}
		keys := make([]string, 0, len(l.Parameters))
		for k := range l.Parameters {
			keys = append(keys, k)
		}
		sort.Strings(keys)
		for _, k := range keys {
			lldp.Parameter = append(lldp.Parameter, types.KeyAnyValue{Key: k, Value: l.Parameters[k]})
		}
		info.LldpInfo = lldp
	}
	return info
}

// queryNetworkHint serves HostNetworkSystem.QueryNetworkHint: one record
// per physical NIC of the host, with the neighbour data set for it.
func (s *Simulator) queryNetworkHint(ctx *simulator.Context, sess session, m *simulator.Method) soap.HasFault {
	req := m.Body.(*types.QueryNetworkHint)
	body := new(methods.QueryNetworkHintBody)
	ns, ok := simulator.Map.Get(req.This).(*simulator.HostNetworkSystem)
	if !ok || ns.Host == nil {
		body.Fault_ = objectNotFound(req.This)
		return body
	}
	host, ok := simulator.Map.Get(ns.Host.Self).(*simulator.HostSystem)
	if !ok {
		body.Fault_ = objectNotFound(req.This)
		return body
	}
	var devices []string
	var connected bool
	simulator.Map.WithLock(host, func() {
		connected = host.Runtime.ConnectionState == types.HostSystemConnectionStateConnected
		for _, p := range host.Config.Network.Pnic {
			devices = append(devices, p.Device)
		}
	})
	if !connected {
		body.Fault_ = newFault("Host is not connected.", &types.HostNotConnected{})
		return body
	}
	res := &types.QueryNetworkHintResponse{}
	for _, d := range devices {
		if len(req.Device) != 0 && !stringIn(req.Device, d) {
			continue
		}
		h, ok := s.hints.get(host.Self.Value, d)
		if !ok {
			h = NicHint{Device: d}
		}
		res.Returnval = append(res.Returnval, h.wire())
	}
	body.Res = res
	return body
}
