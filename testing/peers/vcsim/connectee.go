package main

import (
	"net/http"

	"github.com/vmware/govmomi/vim25/types"
)

// ConnecteeOverride changes what FetchDVPorts reports as a port's
// connectee, so that a test can tie a port to a NIC the inventory derives
// differently (a VMkernel NIC, a NIC that is gone). Fields left out keep
// what the inventory gives; omitConnectee of /ports drops the whole record.
type ConnecteeOverride struct {
	Type      *string `json:"type"`      // "pnic", "vmVnic", "hostVmkVnic", ...
	Entity    *string `json:"entity"`    // value of a HostSystem, or of a VirtualMachine for "vmVnic"
	NicKey    *string `json:"nicKey"`    // device or card key
	ProxyHost *string `json:"proxyHost"` // value of a HostSystem
}

// ConnecteeRequest sets or, with clear, drops the override of one port.
type ConnecteeRequest struct {
	Dvs   string `json:"dvs"`
	Key   string `json:"key"`
	Clear bool   `json:"clear"`
	ConnecteeOverride
}

// registerConnecteeRoutes adds POST /ports/connectee to the control interface.
func (s *Simulator) registerConnecteeRoutes(route func(string, map[string]func(*http.Request) (interface{}, error))) {
	route("/ports/connectee", map[string]func(*http.Request) (interface{}, error){
		"POST": func(r *http.Request) (interface{}, error) {
			var req ConnecteeRequest
			if err := decodeBody(r, &req); err != nil {
				return nil, err
			}
			return s.setConnectee(req)
		},
	})
}

func (s *Simulator) setConnectee(req ConnecteeRequest) (interface{}, error) {
	dvs, err := s.findSwitch(req.Dvs)
	if err != nil {
		return nil, err
	}
	uuid, ports := switchPorts(dvs)
	for _, p := range ports {
		if p.Key != req.Key {
			continue
		}
		s.ports.update(uuid, req.Key, func(st *portState) {
			if req.Clear {
				st.Connectee = nil
				return
			}
			o := req.ConnecteeOverride
			st.Connectee = &o
		})
		return s.portView(uuid, p), nil
	}
	return nil, notFoundError{"port in use", req.Key}
}

// applyConnectee puts an override onto the wire record of a port.
func applyConnectee(port *types.DistributedVirtualPort, o *ConnecteeOverride) {
	if o == nil {
		return
	}
	if o.ProxyHost != nil {
		port.ProxyHost = &types.ManagedObjectReference{Type: "HostSystem", Value: *o.ProxyHost}
	}
	if port.Connectee == nil {
		return
	}
	c := *port.Connectee
	if o.Type != nil {
		c.Type = *o.Type
	}
	if o.NicKey != nil {
		c.NicKey = *o.NicKey
	}
	if o.Entity != nil {
		kind := "VirtualMachine"
		if c.Type != "vmVnic" {
			kind = "HostSystem"
		}
		c.ConnectedEntity = &types.ManagedObjectReference{Type: kind, Value: *o.Entity}
	}
	port.Connectee = &c
}

// showConnectee makes a port's view tell the overridden connectee.
func showConnectee(v *PortView, wp types.DistributedVirtualPort, o *ConnecteeOverride) {
	if o == nil {
		return
	}
	if wp.ProxyHost != nil {
		v.ProxyHost = wp.ProxyHost.Value
	}
	v.ConnecteeType, v.NicKey, v.Entity = "", "", moRef{}
	if c := wp.Connectee; c != nil {
		v.ConnecteeType, v.NicKey = c.Type, c.NicKey
		if c.ConnectedEntity != nil {
			v.Entity = wireRef(*c.ConnectedEntity)
		}
	}
}
