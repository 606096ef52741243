package main

import (
	"context"
	"encoding/json"
	"errors"
	"fmt"
	"net/http"
	"reflect"
	"strconv"
	"time"

	"github.com/vmware/govmomi/vim25/types"
)

// The control interface: plain HTTP on the loopback interface, JSON in and
// out. Errors come back as {"error": "..."} with 400 for a bad request, 404
// for an unknown object or route and 409 for a change that vCenter refuses.

func (s *Simulator) controlHandler() http.Handler {
	mux := http.NewServeMux()
	route := func(path string, handlers map[string]func(*http.Request) (interface{}, error)) {
		mux.HandleFunc(path, func(w http.ResponseWriter, r *http.Request) {
			h, ok := handlers[r.Method]
			if !ok {
				writeJSON(w, http.StatusMethodNotAllowed, map[string]string{"error": "method not allowed"})
				return
			}
			v, err := h(r)
			if err != nil {
				writeError(w, err)
				return
			}
			writeJSON(w, http.StatusOK, v)
		})
	}

	route("/health", map[string]func(*http.Request) (interface{}, error){
		"GET": func(*http.Request) (interface{}, error) {
			return map[string]interface{}{"ok": true, "url": s.URL, "sessions": s.sessions.count()}, nil
		},
	})
	route("/inventory", map[string]func(*http.Request) (interface{}, error){
		"GET": func(*http.Request) (interface{}, error) { return s.inventory(), nil },
	})

	// Inventory changes.
	route("/vm/power", post(s, func(ctx context.Context, req struct {
		Vm    string `json:"vm"`
		State string `json:"state"`
	}) (interface{}, error) {
		if err := s.setPower(ctx, req.Vm, req.State); err != nil {
			return nil, err
		}
		return s.vmByValue(req.Vm)
	}))
	route("/vm/rename", post(s, func(ctx context.Context, req struct {
		Vm   string `json:"vm"`
		Name string `json:"name"`
	}) (interface{}, error) {
		vm, err := s.findVM(req.Vm)
		if err != nil {
			return nil, err
		}
		if err := s.renameEntity(ctx, vm.Self, req.Name); err != nil {
			return nil, err
		}
		return vmView(vm), nil
	}))
	route("/vm/create", post(s, func(ctx context.Context, req struct {
		Name    string `json:"name"`
		Host    string `json:"host"`
		Network string `json:"network"`
		PowerOn *bool  `json:"powerOn"`
	}) (interface{}, error) {
		if req.Name == "" {
			return nil, badRequest("the machine needs a name")
		}
		host, err := s.findHost(req.Host)
		if err != nil {
			return nil, err
		}
		var network *types.ManagedObjectReference
		if req.Network != "" {
			if network, err = s.findNetwork(req.Network); err != nil {
				return nil, err
			}
		}
		ref, err := s.createVM(ctx, req.Name, host.Self, network, req.PowerOn == nil || *req.PowerOn)
		if err != nil {
			return nil, conflictError{err.Error()}
		}
		return s.vmByValue(ref.Value)
	}))
	route("/vm/destroy", post(s, func(ctx context.Context, req struct {
		Vm string `json:"vm"`
	}) (interface{}, error) {
		return map[string]bool{"ok": true}, s.destroyVM(ctx, req.Vm)
	}))
	route("/vm/migrate", post(s, func(ctx context.Context, req struct {
		Vm   string `json:"vm"`
		Host string `json:"host"`
	}) (interface{}, error) {
		if err := s.migrateVM(ctx, req.Vm, req.Host); err != nil {
			return nil, err
		}
		return s.vmByValue(req.Vm)
	}))
	route("/host/add", post(s, func(ctx context.Context, req struct {
		Name       string `json:"name"`
		Cluster    string `json:"cluster"`
		Datacenter string `json:"datacenter"`
		JoinDvs    *bool  `json:"joinDvs"`
	}) (interface{}, error) {
		host, err := s.addHost(ctx, req.Name, req.Cluster, req.Datacenter, req.JoinDvs == nil || *req.JoinDvs)
		if err != nil {
			return nil, err
		}
		return hostView(host), nil
	}))
	route("/host/remove", post(s, func(ctx context.Context, req struct {
		Host  string `json:"host"`
		Force bool   `json:"force"`
	}) (interface{}, error) {
		return map[string]bool{"ok": true}, s.removeHost(ctx, req.Host, req.Force)
	}))
	route("/host/rename", post(s, func(ctx context.Context, req struct {
		Host string `json:"host"`
		Name string `json:"name"`
	}) (interface{}, error) {
		host, err := s.findHost(req.Host)
		if err != nil {
			return nil, err
		}
		if err := s.renameEntity(ctx, host.Self, req.Name); err != nil {
			return nil, err
		}
		return hostView(host), nil
	}))
	route("/portgroup/create", post(s, func(ctx context.Context, req struct {
		Dvs  string `json:"dvs"`
		Name string `json:"name"`
		Vlan int32  `json:"vlan"`
	}) (interface{}, error) {
		pg, err := s.createPortgroup(ctx, req.Dvs, req.Name, req.Vlan)
		if err != nil {
			return nil, err
		}
		return portgroupView(pg), nil
	}))
	route("/portgroup/destroy", post(s, func(ctx context.Context, req struct {
		Portgroup string `json:"portgroup"`
		Force     bool   `json:"force"`
	}) (interface{}, error) {
		return map[string]bool{"ok": true}, s.destroyPortgroup(ctx, req.Portgroup, req.Force)
	}))

	// Events.
	route("/events", map[string]func(*http.Request) (interface{}, error){
		"GET": func(r *http.Request) (interface{}, error) {
			since, err := intParam(r, "since")
			if err != nil {
				return nil, err
			}
			kind := r.URL.Query().Get("type")
			out := []EventView{}
			for _, e := range s.events.snapshot() {
				if int(e.GetEvent().Key) <= since || (kind != "" && eventTypeName(e) != kind) {
					continue
				}
				out = append(out, eventView(e))
			}
			return out, nil
		},
		"POST": func(r *http.Request) (interface{}, error) {
			var req EventRequest
			if err := decodeBody(r, &req); err != nil {
				return nil, err
			}
			ev, err := s.buildEvent(req)
			if err != nil {
				return nil, err
			}
			s.postEvent(simContext(req.User, ""), ev)
			return eventView(ev), nil
		},
	})

	// What clients wrote.
	route("/userevents", getter(func() interface{} { return s.records.listUserEvents() }))
	route("/alarms", getter(func() interface{} { return s.records.listAlarms() }))
	route("/portreconfigs", getter(func() interface{} { return s.records.listReconfigs() }))
	route("/portrefreshes", getter(func() interface{} { return s.records.listRefreshes() }))
	route("/records", map[string]func(*http.Request) (interface{}, error){
		"DELETE": func(*http.Request) (interface{}, error) { s.records.clear(); return ok(), nil },
	})

	// DV ports.
	route("/ports", map[string]func(*http.Request) (interface{}, error){
		"GET": func(r *http.Request) (interface{}, error) {
			dvs, err := s.findSwitch(r.URL.Query().Get("dvs"))
			if err != nil {
				return nil, err
			}
			uuid, ports := switchPorts(dvs)
			out := []PortView{}
			for _, p := range ports {
				out = append(out, s.portView(uuid, p))
			}
			return out, nil
		},
		"POST": func(r *http.Request) (interface{}, error) {
			var req PortStateRequest
			if err := decodeBody(r, &req); err != nil {
				return nil, err
			}
			return s.setPortState(req)
		},
	})

	s.registerConnecteeRoutes(route)
	// Network hints.
	route("/hints", map[string]func(*http.Request) (interface{}, error){
		"GET": func(*http.Request) (interface{}, error) { return s.hints.list(), nil },
		"POST": func(r *http.Request) (interface{}, error) {
			var h NicHint
			if err := decodeBody(r, &h); err != nil {
				return nil, err
			}
			if _, err := s.findHost(h.Host); err != nil {
				return nil, err
			}
			if h.Device == "" {
				return nil, badRequest("the hint needs a device")
			}
			s.hints.set(h)
			return h, nil
		},
		"DELETE": func(*http.Request) (interface{}, error) { s.hints.clear(); return ok(), nil },
	})

	// Faults.
	route("/faults", map[string]func(*http.Request) (interface{}, error){
		"GET": func(*http.Request) (interface{}, error) { return s.faults.list(), nil },
		"POST": func(r *http.Request) (interface{}, error) {
			rule := FaultRule{Count: 1}
			if err := decodeBody(r, &rule); err != nil {
				return nil, err
			}
			added, err := s.faults.add(rule)
			if err != nil {
				return nil, badRequest(err.Error())
			}
			return added, nil
		},
		"DELETE": func(r *http.Request) (interface{}, error) {
			if id := r.URL.Query().Get("id"); id != "" {
				n, err := strconv.Atoi(id)
				if err != nil {
					return nil, badRequest("bad id")
				}
				if !s.faults.remove(n) {
					return nil, notFoundError{"fault rule", id}
				}
				return ok(), nil
			}
			s.faults.clear()
			return ok(), nil
		},
	})

	// Calls.
	route("/calls", map[string]func(*http.Request) (interface{}, error){
		"GET": func(r *http.Request) (interface{}, error) {
			since, err := intParam(r, "since")
			if err != nil {
				return nil, err
			}
			return s.calls.list(r.URL.Query().Get("method"), since), nil
		},
		"DELETE": func(*http.Request) (interface{}, error) { s.calls.clear(); return ok(), nil },
	})

	// Options.
	route("/options", map[string]func(*http.Request) (interface{}, error){
		"GET": func(*http.Request) (interface{}, error) { return s.options.get(), nil },
		"POST": func(r *http.Request) (interface{}, error) {
			opts := s.options.get()
			if err := decodeBody(r, &opts); err != nil {
				return nil, err
			}
			if opts.EmptyDvsRef != "" {
				if _, err := s.findSwitch(opts.EmptyDvsRef); err != nil {
					return nil, err
				}
			}
			s.options.set(opts)
			return opts, nil
		},
	})

	// Reset clears everything that tests set or leave behind, but not the
	// inventory: faults (releasing held requests), calls, records, hints,
	// port states and options.
	route("/reset", map[string]func(*http.Request) (interface{}, error){
		"POST": func(*http.Request) (interface{}, error) {
			s.faults.clear()
			s.calls.clear()
			s.records.clear()
			s.hints.clear()
			s.ports.reset()
			s.options.set(Options{})
			return ok(), nil
		},
	})

	s.addSyncRoutes(route)
	return mux
}

func ok() map[string]bool { return map[string]bool{"ok": true} }

// post makes a POST handler that decodes the body into the request type and
// runs the change while no other inventory change runs.
func post[T any](s *Simulator, f func(context.Context, T) (interface{}, error)) map[string]func(*http.Request) (interface{}, error) {
	return map[string]func(*http.Request) (interface{}, error){
		"POST": func(r *http.Request) (interface{}, error) {
			var req T
			if err := decodeBody(r, &req); err != nil {
				return nil, err
			}
			s.inventoryMu.Lock()
			defer s.inventoryMu.Unlock()
			ctx, cancel := context.WithTimeout(r.Context(), time.Minute)
			defer cancel()
			return f(ctx, req)
		},
	}
}

func getter(f func() interface{}) map[string]func(*http.Request) (interface{}, error) {
	return map[string]func(*http.Request) (interface{}, error){
		"GET": func(*http.Request) (interface{}, error) { return f(), nil },
	}
}

type badRequestError struct{ msg string }

func (e badRequestError) Error() string { return e.msg }

func badRequest(msg string) error { return badRequestError{msg} }

func decodeBody(r *http.Request, v interface{}) error {
	dec := json.NewDecoder(r.Body)
	dec.DisallowUnknownFields()
	if err := dec.Decode(v); err != nil {
		return badRequest("bad JSON body: " + err.Error())
	}
	return nil
}

func intParam(r *http.Request, name string) (int, error) {
	v := r.URL.Query().Get(name)
	if v == "" {
		return 0, nil
	}
	n, err := strconv.Atoi(v)
	if err != nil {
		return 0, badRequest("bad " + name)
	}
	return n, nil
}

func writeJSON(w http.ResponseWriter, code int, v interface{}) {
	w.Header().Set("Content-Type", "application/json")
	w.WriteHeader(code)
	enc := json.NewEncoder(w)
	enc.SetIndent("", "  ")
	_ = enc.Encode(v)
}

func writeError(w http.ResponseWriter, err error) {
	code := http.StatusBadRequest
	var nf notFoundError
	var cf conflictError
	switch {
	case errors.As(err, &nf):
		code = http.StatusNotFound
	case errors.As(err, &cf):
		code = http.StatusConflict
	}
	writeJSON(w, code, map[string]string{"error": err.Error()})
}

func (s *Simulator) vmByValue(value string) (interface{}, error) {
	vm, err := s.findVM(value)
	if err != nil {
		return nil, err
	}
	return vmView(vm), nil
}

// EventRequest describes an event to post. Type is any vim25 event class;
// the references are values ("vm-42"). The machine's event arguments (its
// host, compute resource and datacenter) are filled in as vCenter does;
// host overrides the machine's host.
type EventRequest struct {
	Type       string `json:"type"`
	Vm         string `json:"vm,omitempty"`
	Host       string `json:"host,omitempty"`
	DestHost   string `json:"destHost,omitempty"`   // VmBeingHotMigratedEvent, VmFailedMigrateEvent, ...
	SourceHost string `json:"sourceHost,omitempty"` // VmMigratedEvent, DrsVmMigratedEvent; default: host
	Dvs        string `json:"dvs,omitempty"`
	PortKey    string `json:"portKey,omitempty"` // port link events
	LinkUp     *bool  `json:"linkUp,omitempty"`  // port link events: runtime info of the port
	Reason     string `json:"reason,omitempty"`  // VmFailedMigrateEvent
	Message    string `json:"message,omitempty"` // GeneralEvent and its kin
	User       string `json:"user,omitempty"`    // user name of the event; default "vcsim"
}

func (s *Simulator) buildEvent(req EventRequest) (types.BaseEvent, error) {
	typ, ok := typeFunc(req.Type)
	if !ok {
		return nil, badRequest(fmt.Sprintf("unknown event type %q", req.Type))
	}
	v := reflect.New(typ)
	ev, ok := v.Interface().(types.BaseEvent)
	if !ok {
		return nil, badRequest(fmt.Sprintf("%q is not an event type", req.Type))
	}
	e := ev.GetEvent()

	hostArg := func(value string) (*types.HostEventArgument, *types.DatacenterEventArgument, error) {
		h, err := s.findHost(value)
		if err != nil {
			return nil, nil, err
		}
		args := eventArguments(h.Self)
		return args.Host, args.Datacenter, nil
	}

	switch {
	case req.Vm != "":
		vm, err := s.findVM(req.Vm)
		if err != nil {
			return nil, err
		}
		*e = eventArguments(vm.Self)
	case req.Host != "":
		h, err := s.findHost(req.Host)
		if err != nil {
			return nil, err
		}
		*e = eventArguments(h.Self)
	}
	if req.Vm != "" && req.Host != "" {
		h, err := s.findHost(req.Host)
		if err != nil {
			return nil, err
		}
		args := eventArguments(h.Self)
		e.Host, e.ComputeResource = args.Host, args.ComputeResource
	}
	if req.Dvs != "" {
		dvs, err := s.findSwitch(req.Dvs)
		if err != nil {
			return nil, err
		}
		args := eventArguments(dvs.Self)
		e.Dvs = args.Dvs
		if e.Datacenter == nil {
			e.Datacenter = args.Datacenter
		}
	}

	obj := v.Elem()
	setHost := func(field, dcField, value string, fallback *types.HostEventArgument) error {
		f := obj.FieldByName(field)
		if !f.IsValid() {
			if value != "" {
				return badRequest(fmt.Sprintf("%s has no %s", req.Type, field))
			}
			return nil
		}
		var arg *types.HostEventArgument
		var dc *types.DatacenterEventArgument
		if value != "" {
			var err error
			if arg, dc, err = hostArg(value); err != nil {
				return err
			}
		} else if fallback != nil {
			arg, dc = fallback, e.Datacenter
		} else {
			return badRequest(fmt.Sprintf("%s needs %s", req.Type, field))
		}
		switch f.Interface().(type) {
		case types.HostEventArgument:
			f.Set(reflect.ValueOf(*arg))
		case *types.HostEventArgument:
			f.Set(reflect.ValueOf(arg))
		}
		if d := obj.FieldByName(dcField); d.IsValid() && dc != nil {
			d.Set(reflect.ValueOf(dc))
		}
		return nil
	}
	if err := setHost("DestHost", "DestDatacenter", req.DestHost, nil); err != nil {
		return nil, err
	}
	if err := setHost("SourceHost", "SourceDatacenter", req.SourceHost, e.Host); err != nil {
		return nil, err
	}
	if f := obj.FieldByName("PortKey"); f.IsValid() && f.Kind() == reflect.String {
		f.SetString(req.PortKey)
	} else if req.PortKey != "" {
		return nil, badRequest(req.Type + " has no portKey")
	}
	if f := obj.FieldByName("RuntimeInfo"); f.IsValid() && req.LinkUp != nil {
		if _, ok := f.Interface().(*types.DVPortStatus); ok {
			f.Set(reflect.ValueOf(&types.DVPortStatus{LinkUp: *req.LinkUp}))
		}
	}
	if f := obj.FieldByName("Reason"); f.IsValid() {
		if _, ok := f.Interface().(types.LocalizedMethodFault); ok {
			reason := req.Reason
			if reason == "" {
				reason = "The operation failed."
			}
			f.Set(reflect.ValueOf(types.LocalizedMethodFault{Fault: &types.SystemError{Reason: reason}, LocalizedMessage: reason}))
		}
	}
	if f := obj.FieldByName("Message"); f.IsValid() && f.Kind() == reflect.String {
		f.SetString(req.Message)
	}
	return ev, nil
}

func eventTypeName(e types.BaseEvent) string {
	return reflect.TypeOf(e).Elem().Name()
}

// NamedRef is an event argument.
type NamedRef struct {
	Ref  moRef  `json:"ref"`
	Name string `json:"name"`
}

// EventView is an event as the control interface shows it.
type EventView struct {
	Key             int32     `json:"key"`
	ChainId         int32     `json:"chainId"`
	Type            string    `json:"type"`
	CreatedTime     time.Time `json:"createdTime"`
	UserName        string    `json:"userName"`
	Message         string    `json:"fullFormattedMessage,omitempty"`
	Datacenter      *NamedRef `json:"datacenter,omitempty"`
	ComputeResource *NamedRef `json:"computeResource,omitempty"`
	Host            *NamedRef `json:"host,omitempty"`
	Vm              *NamedRef `json:"vm,omitempty"`
	Dvs             *NamedRef `json:"dvs,omitempty"`
	Net             *NamedRef `json:"net,omitempty"`
	DestHost        *NamedRef `json:"destHost,omitempty"`
	SourceHost      *NamedRef `json:"sourceHost,omitempty"`
	Entity          *NamedRef `json:"entity,omitempty"`
	PortKey         string    `json:"portKey,omitempty"`
	Msg             string    `json:"message,omitempty"`
}

func named(ref types.ManagedObjectReference, name string) *NamedRef {
	return &NamedRef{Ref: wireRef(ref), Name: name}
}

func eventView(e types.BaseEvent) EventView {
	ev := e.GetEvent()
	v := EventView{Key: ev.Key, ChainId: ev.ChainId, Type: eventTypeName(e), CreatedTime: ev.CreatedTime,
		UserName: ev.UserName, Message: ev.FullFormattedMessage}
	if a := ev.Datacenter; a != nil {
		v.Datacenter = named(a.Datacenter, a.Name)
	}
	if a := ev.ComputeResource; a != nil {
		v.ComputeResource = named(a.ComputeResource, a.Name)
	}
	if a := ev.Host; a != nil {
		v.Host = named(a.Host, a.Name)
	}
	if a := ev.Vm; a != nil {
		v.Vm = named(a.Vm, a.Name)
	}
	if a := ev.Dvs; a != nil {
		v.Dvs = named(a.Dvs, a.Name)
	}
	if a := ev.Net; a != nil {
		v.Net = named(a.Network, a.Name)
	}
	obj := reflect.ValueOf(e).Elem()
	hostField := func(name string) *NamedRef {
		f := obj.FieldByName(name)
		if !f.IsValid() {
			return nil
		}
		switch a := f.Interface().(type) {
		case types.HostEventArgument:
			return named(a.Host, a.Name)
		case *types.HostEventArgument:
			if a != nil {
				return named(a.Host, a.Name)
			}
		}
		return nil
	}
	v.DestHost = hostField("DestHost")
	v.SourceHost = hostField("SourceHost")
	if f := obj.FieldByName("Entity"); f.IsValid() {
		switch a := f.Interface().(type) {
		case types.ManagedEntityEventArgument:
			v.Entity = named(a.Entity, a.Name)
		case *types.ManagedEntityEventArgument:
			if a != nil {
				v.Entity = named(a.Entity, a.Name)
			}
		}
	}
	if f := obj.FieldByName("PortKey"); f.IsValid() && f.Kind() == reflect.String {
		v.PortKey = f.String()
	}
	if f := obj.FieldByName("Message"); f.IsValid() && f.Kind() == reflect.String {
		v.Msg = f.String()
	}
	return v
}

// PortStats are the counters of a DV port, named as in vim25.
type PortStats struct {
	types.DynamicData   `json:"-"`
	PacketsInMulticast  int64 `json:"packetsInMulticast"`
	PacketsOutMulticast int64 `json:"packetsOutMulticast"`
	BytesInMulticast    int64 `json:"bytesInMulticast"`
	BytesOutMulticast   int64 `json:"bytesOutMulticast"`
	PacketsInUnicast    int64 `json:"packetsInUnicast"`
	PacketsOutUnicast   int64 `json:"packetsOutUnicast"`
	BytesInUnicast      int64 `json:"bytesInUnicast"`
	BytesOutUnicast     int64 `json:"bytesOutUnicast"`
	PacketsInBroadcast  int64 `json:"packetsInBroadcast"`
	PacketsOutBroadcast int64 `json:"packetsOutBroadcast"`
	BytesInBroadcast    int64 `json:"bytesInBroadcast"`
	BytesOutBroadcast   int64 `json:"bytesOutBroadcast"`
	PacketsInDropped    int64 `json:"packetsInDropped"`
	PacketsOutDropped   int64 `json:"packetsOutDropped"`
	PacketsInException  int64 `json:"packetsInException"`
	PacketsOutException int64 `json:"packetsOutException"`
	BytesInFromPnic     int64 `json:"bytesInFromPnic"`
	BytesOutToPnic      int64 `json:"bytesOutToPnic"`
}

// PortView is a DV port in use, with what FetchDVPorts would report.
type PortView struct {
	Key           string        `json:"key"`
	PortgroupKey  string        `json:"portgroupKey"`
	Uplink        bool          `json:"uplink"`
	ConnecteeType string        `json:"connecteeType"`
	Entity        moRef         `json:"entity"`
	NicKey        string        `json:"nicKey"`
	Mac           string        `json:"mac"`
	ProxyHost     string        `json:"proxyHost"`
	LinkUp        bool          `json:"linkUp"`
	Mtu           int32         `json:"mtu"`
	Blocked       *BoolPolicyJS `json:"blocked"`
	Stats         PortStats     `json:"stats"`
	OmitState     bool          `json:"omitState"`
	OmitConnectee bool          `json:"omitConnectee"`
}

func (s *Simulator) portView(uuid string, p dvPort) PortView {
	st := s.ports.get(uuid, p.Key)
	wp := s.wirePort(uuid, p)
	v := PortView{
		Key: p.Key, PortgroupKey: p.PortgroupKey, Uplink: p.Uplink, ConnecteeType: p.ConnType,
		Entity: wireRef(p.Entity), NicKey: p.NicKey, Mac: p.Mac, ProxyHost: p.ProxyHost.Value,
		Stats: PortStats(st.Stats), OmitState: st.OmitState, OmitConnectee: st.OmitConnectee,
	}
	if wp.Config.Setting != nil {
		v.Blocked = policyJSON(wp.Config.Setting.GetDVPortSetting().Blocked)
	}
	showConnectee(&v, wp, st.Connectee)
	v.LinkUp = p.PoweredOn
	if st.LinkUp != nil {
		v.LinkUp = *st.LinkUp
	}
	v.Mtu = 1500
	if st.Mtu != nil {
		v.Mtu = *st.Mtu
	}
	return v
}

// PortStateRequest changes what FetchDVPorts reports for a port. Fields
// left out stay as they are.
type PortStateRequest struct {
	Dvs           string        `json:"dvs"`
	Key           string        `json:"key"`
	LinkUp        *bool         `json:"linkUp"`
	Mtu           *int32        `json:"mtu"` // 0: no MTU in the reply
	Stats         *PortStats    `json:"stats"`
	Blocked       *BoolPolicyJS `json:"blocked"`
	ClearBlocked  bool          `json:"clearBlocked"` // the setting goes back to no blocked policy
	OmitState     *bool         `json:"omitState"`
	OmitConnectee *bool         `json:"omitConnectee"`
}

func (s *Simulator) setPortState(req PortStateRequest) (interface{}, error) {
	dvs, err := s.findSwitch(req.Dvs)
	if err != nil {
		return nil, err
	}
	uuid, ports := switchPorts(dvs)
	var port *dvPort
	for i := range ports {
		if ports[i].Key == req.Key {
			port = &ports[i]
		}
	}
	if port == nil {
		return nil, notFoundError{"port in use", req.Key}
	}
	s.ports.update(uuid, req.Key, func(st *portState) {
		if req.LinkUp != nil {
			v := *req.LinkUp
			st.LinkUp = &v
		}
		if req.Mtu != nil {
			v := *req.Mtu
			st.Mtu = &v
		}
		if req.Stats != nil {
			st.Stats = types.DistributedVirtualSwitchPortStatistics(*req.Stats)
		}
		if req.ClearBlocked {
			st.Blocked = nil
		}
		if b := req.Blocked; b != nil {
			p := &types.BoolPolicy{Value: b.Value}
			if b.Inherited != nil {
				p.Inherited = *b.Inherited
			}
			st.Blocked = p
		}
		if req.OmitState != nil {
			st.OmitState = *req.OmitState
		}
		if req.OmitConnectee != nil {
			st.OmitConnectee = *req.OmitConnectee
		}
	})
	return s.portView(uuid, *port), nil
}
