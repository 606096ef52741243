package main

import (
	"reflect"
	"sort"
	"strconv"
	"sync"
	"sync/atomic"
	"time"

	"github.com/google/uuid"
	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/methods"
	"github.com/vmware/govmomi/vim25/mo"
	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
)

// propertyCollector is the PropertyCollector of each session; the simulator
// makes one per session by reflection on the type of the registered
// singleton. Its update calls are computed here and not by the simulator,
// whose wait loop
//   - fails (a panic that drops the connection) when an object changes and
//     is removed within one round, as every Destroy_Task of a machine does,
//     if the filter has PropertySpecs of several types, as libHarbec's has;
//   - listens with one registry key for all sessions, so that only the
//     session that waited last hears of changes;
//   - hands out the version "-" every time, and has no CheckForUpdates.
//
// Instead, each filter's objects and properties are collected anew (with the
// simulator's RetrieveProperties) whenever the registry reports a change, and
// compared with the state of the version that the client names. Versions are
// "1", "2", ... as in vCenter; a number of past states is kept, so a client
// may ask again from an older version.
type propertyCollector struct {
	simulator.PropertyCollector

	mu       sync.Mutex
	version  int
	history  []pcVersion // oldest first
	listener *pcListener
	cancel   chan struct{} // closed by CancelWaitForUpdates
	waitMu   sync.Mutex    // one wait at a time
}

const (
	keptVersions = 16
	settleTime   = 50 * time.Millisecond // changes that come together go into one update set
)

// pcVersion is what the client was told up to a version.
type pcVersion struct {
	version int
	filters map[types.ManagedObjectReference]map[types.ManagedObjectReference]*objectState
}

// objectState holds an object's properties as reported, deep copies that
// are never changed afterwards.
type objectState struct {
	props []types.DynamicProperty
}

func (o *objectState) get(name string) (types.AnyType, bool) {
	for _, p := range o.props {
		if p.Name == name {
			return p.Val, true
		}
	}
	return nil, false
}

// activeSim is the running simulator, for the collectors that the simulator
// creates by reflection.
var activeSim *Simulator

func (s *Simulator) installPropertyCollector() {
	activeSim = s
	pc := &propertyCollector{}
	pc.Self = s.vim.ServiceContent.PropertyCollector
	simulator.Map.Put(pc)
}

// pcListener wakes a waiting collector on changes in the registry. It has
// a key of its own: the collectors of all sessions share one reference.
// Tasks come and go with every change and are left out, unless a filter of
// the collector names them; so is the event store's own collector.
type pcListener struct {
	ref   types.ManagedObjectReference
	wake  chan struct{}
	tasks atomic.Bool
	tap   types.ManagedObjectReference
}

func (l *pcListener) Reference() types.ManagedObjectReference { return l.ref }
func (l *pcListener) notify(ref types.ManagedObjectReference) {
	if ref == l.tap || (ref.Type == "Task" && !l.tasks.Load()) {
		return
	}
	select {
	case l.wake <- struct{}{}:
	default:
	}
}
func (l *pcListener) PutObject(o mo.Reference)                              { l.notify(o.Reference()) }
func (l *pcListener) UpdateObject(o mo.Reference, _ []types.PropertyChange) { l.notify(o.Reference()) }
func (l *pcListener) RemoveObject(ref types.ManagedObjectReference)         { l.notify(ref) }

// watchesTasks tells whether a filter of the collector names tasks.
func (pc *propertyCollector) watchesTasks(ctx *simulator.Context) bool {
	for _, fref := range append([]types.ManagedObjectReference(nil), pc.Filter...) {
		f, ok := ctx.Session.Get(fref).(*simulator.PropertyFilter)
		if !ok {
			continue
		}
		for _, p := range f.Spec.PropSet {
			if p.Type == "Task" || p.Type == "ExtensibleManagedObject" || p.Type == "ManagedObject" {
				return true
			}
		}
	}
	return false
}

// listen registers the collector's listener once; it goes with the session.
func (pc *propertyCollector) listen(ctx *simulator.Context) *pcListener {
	pc.mu.Lock()
	defer pc.mu.Unlock()
	if pc.listener == nil {
		pc.listener = &pcListener{
			ref:  types.ManagedObjectReference{Type: "VcsimCollectorListener", Value: uuid.New().String()},
			wake: make(chan struct{}, 1),
		}
		if activeSim != nil {
			activeSim.events.mu.Lock()
			pc.listener.tap = activeSim.events.tapRef
			activeSim.events.mu.Unlock()
		}
		simulator.Map.AddHandler(pc.listener)
		if activeSim != nil && ctx.Session != nil {
			activeSim.sessions.onLogout(ctx.Session.Key, func() { simulator.Map.RemoveHandler(pc.listener) })
		}
	}
	if pc.cancel == nil {
		pc.cancel = make(chan struct{})
	}
	return pc.listener
}

// base returns the state of a version; "" is the empty state.
func (pc *propertyCollector) base(v string) (*pcVersion, *soap.Fault) {
	if v == "" {
		return &pcVersion{}, nil
	}
	n, err := strconv.Atoi(v)
	pc.mu.Lock()
	defer pc.mu.Unlock()
	if err == nil {
		for i := range pc.history {
			if pc.history[i].version == n {
				return &pc.history[i], nil
			}
		}
	}
	return nil, newFault("The collector version "+v+" is invalid.", &types.InvalidCollectorVersion{})
}

// collect reads the present state of every filter of the session. Objects
// that equal their state in one of the given versions share it.
func (pc *propertyCollector) collect(ctx *simulator.Context, known ...*pcVersion) map[types.ManagedObjectReference]map[types.ManagedObjectReference]*objectState {
	out := make(map[types.ManagedObjectReference]map[types.ManagedObjectReference]*objectState)
	for _, fref := range append([]types.ManagedObjectReference(nil), pc.Filter...) {
		f, ok := ctx.Session.Get(fref).(*simulator.PropertyFilter)
		if !ok {
			continue
		}
		objects := make(map[types.ManagedObjectReference]*objectState)
		out[fref] = objects
		res := pc.PropertyCollector.RetrievePropertiesEx(ctx, &types.RetrievePropertiesEx{SpecSet: []types.PropertyFilterSpec{typedSpec(ctx, f.Spec)}})
		body, ok := res.(*methods.RetrievePropertiesExBody)
		if !ok || body.Res == nil || body.Res.Returnval == nil {
			continue // e.g. the object of the filter is gone: everything leaves
		}
		for _, oc := range body.Res.Returnval.Objects {
			var same *objectState
			for _, k := range known {
				if prev := k.filters[fref][oc.Obj]; prev != nil && samePropSet(prev.props, oc.PropSet) {
					same = prev
					break
				}
			}
			if same == nil {
				same = &objectState{props: deepCopy(oc.PropSet).([]types.DynamicProperty)}
			}
			objects[oc.Obj] = same
		}
	}
	return out
}

func samePropSet(a, b []types.DynamicProperty) bool {
	if len(a) != len(b) {
		return false
	}
	for i := range a {
		if a[i].Name != b[i].Name || !reflect.DeepEqual(a[i].Val, b[i].Val) {
			return false
		}
	}
	return true
}

// diff makes the update set that takes a client from one state to another.
func diff(from *pcVersion, to map[types.ManagedObjectReference]map[types.ManagedObjectReference]*objectState, filterOrder []types.ManagedObjectReference) []types.PropertyFilterUpdate {
	var out []types.PropertyFilterUpdate
	for _, fref := range filterOrder {
		now, ok := to[fref]
		if !ok {
			continue
		}
		before := from.filters[fref]
		fu := types.PropertyFilterUpdate{Filter: fref}
		refs := make([]types.ManagedObjectReference, 0, len(now))
		for ref := range now {
			refs = append(refs, ref)
		}
		sort.Slice(refs, func(i, j int) bool { return refLess(refs[i], refs[j]) })
		for _, ref := range refs {
			cur := now[ref]
			prev := before[ref]
			switch {
			case prev == nil:
				u := types.ObjectUpdate{Kind: types.ObjectUpdateKindEnter, Obj: ref}
				for _, p := range cur.props {
					u.ChangeSet = append(u.ChangeSet, types.PropertyChange{Name: p.Name, Op: types.PropertyChangeOpAssign, Val: p.Val})
				}
				fu.ObjectSet = append(fu.ObjectSet, u)
			case prev != cur:
				u := types.ObjectUpdate{Kind: types.ObjectUpdateKindModify, Obj: ref}
				for _, p := range cur.props {
					if old, ok := prev.get(p.Name); !ok || !reflect.DeepEqual(old, p.Val) {
						u.ChangeSet = append(u.ChangeSet, types.PropertyChange{Name: p.Name, Op: types.PropertyChangeOpAssign, Val: p.Val})
					}
				}
				for _, p := range prev.props {
					if _, ok := cur.get(p.Name); !ok {
						u.ChangeSet = append(u.ChangeSet, types.PropertyChange{Name: p.Name, Op: types.PropertyChangeOpAssign})
					}
				}
				if len(u.ChangeSet) > 0 {
					fu.ObjectSet = append(fu.ObjectSet, u)
				}
			}
		}
		var gone []types.ManagedObjectReference
		for ref := range before {
			if _, ok := now[ref]; !ok {
				gone = append(gone, ref)
			}
		}
		sort.Slice(gone, func(i, j int) bool { return refLess(gone[i], gone[j]) })
		for _, ref := range gone {
			fu.ObjectSet = append(fu.ObjectSet, types.ObjectUpdate{Kind: types.ObjectUpdateKindLeave, Obj: ref})
		}
		if len(fu.ObjectSet) > 0 {
			out = append(out, fu)
		}
	}
	return out
}

// record keeps a state as the next version and returns its name.
func (pc *propertyCollector) record(state map[types.ManagedObjectReference]map[types.ManagedObjectReference]*objectState) string {
	pc.mu.Lock()
	defer pc.mu.Unlock()
	pc.version++
	pc.history = append(pc.history, pcVersion{version: pc.version, filters: state})
	if len(pc.history) > keptVersions {
		pc.history = pc.history[len(pc.history)-keptVersions:]
	}
	return strconv.Itoa(pc.version)
}

func (pc *propertyCollector) latest() *pcVersion {
	pc.mu.Lock()
	defer pc.mu.Unlock()
	if n := len(pc.history); n > 0 {
		return &pc.history[n-1]
	}
	return &pcVersion{}
}

// waitForUpdates is the one implementation of the three update calls.
// maxWait < 0 waits for ever, 0 looks once. A nil set with no fault means
// that nothing changed in time.
func (pc *propertyCollector) waitForUpdates(ctx *simulator.Context, version string, maxWait time.Duration) (*types.UpdateSet, *soap.Fault) {
	from, fault := pc.base(version)
	if fault != nil {
		return nil, fault
	}
	pc.waitMu.Lock()
	defer pc.waitMu.Unlock()
	listener := pc.listen(ctx)
	listener.tasks.Store(pc.watchesTasks(ctx))
	pc.mu.Lock()
	cancel := pc.cancel
	pc.mu.Unlock()

	var timeout <-chan time.Time
	if maxWait > 0 {
		timer := time.NewTimer(maxWait)
		defer timer.Stop()
		timeout = timer.C
	}
	var stop <-chan struct{}
	if activeSim != nil {
		stop = activeSim.stop
	}
	for {
		select { // changes from here on wake the next round
		case <-listener.wake:
		default:
		}
		order := append([]types.ManagedObjectReference(nil), pc.Filter...)
		state := pc.collect(ctx, from, pc.latest())
		if updates := diff(from, state, order); len(updates) > 0 || version == "" {
			return &types.UpdateSet{Version: pc.record(state), FilterSet: updates}, nil
		}
		if maxWait == 0 {
			return nil, nil
		}
		select {
		case <-listener.wake:
			time.Sleep(settleTime)
		case <-timeout:
			return nil, nil
		case <-cancel:
			pc.mu.Lock()
			pc.cancel = nil
			pc.mu.Unlock()
			return nil, newFault("The task was canceled by a user.", &types.RequestCanceled{})
		case <-stop:
			return nil, newFault("The server is stopping.", &types.RequestCanceled{})
		}
	}
}

// WaitForUpdates blocks until the objects of the filters change.
func (pc *propertyCollector) WaitForUpdates(ctx *simulator.Context, r *types.WaitForUpdates) soap.HasFault {
	body := &methods.WaitForUpdatesBody{}
	set, fault := pc.waitForUpdates(ctx, r.Version, -1)
	if fault != nil {
		body.Fault_ = fault
		return body
	}
	body.Res = &types.WaitForUpdatesResponse{Returnval: *set}
	return body
}

// CheckForUpdates is WaitForUpdates that does not wait: without changes
// since the version it returns no update set at all.
func (pc *propertyCollector) CheckForUpdates(ctx *simulator.Context, r *types.CheckForUpdates) soap.HasFault {
	body := &methods.CheckForUpdatesBody{}
	set, fault := pc.waitForUpdates(ctx, r.Version, 0)
	if fault != nil {
		body.Fault_ = fault
		return body
	}
	body.Res = &types.CheckForUpdatesResponse{Returnval: set}
	return body
}

// WaitForUpdatesEx waits at most maxWaitSeconds, if given.
func (pc *propertyCollector) WaitForUpdatesEx(ctx *simulator.Context, r *types.WaitForUpdatesEx) soap.HasFault {
	body := &methods.WaitForUpdatesExBody{}
	wait := time.Duration(-1)
	if r.Options != nil && r.Options.MaxWaitSeconds != nil {
		wait = time.Duration(*r.Options.MaxWaitSeconds) * time.Second
		if wait < 0 {
			wait = 0
		}
	}
	set, fault := pc.waitForUpdates(ctx, r.Version, wait)
	if fault != nil {
		body.Fault_ = fault
		return body
	}
	body.Res = &types.WaitForUpdatesExResponse{Returnval: set}
	return body
}

// CancelWaitForUpdates ends a wait of this collector with RequestCanceled.
func (pc *propertyCollector) CancelWaitForUpdates(r *types.CancelWaitForUpdates) soap.HasFault {
	pc.mu.Lock()
	if pc.cancel != nil {
		close(pc.cancel)
		pc.cancel = nil
	}
	pc.mu.Unlock()
	return &methods.CancelWaitForUpdatesBody{Res: new(types.CancelWaitForUpdatesResponse)}
}

// deepCopy copies a vim25 value with everything it points to, so that later
// changes of the inventory do not reach a state that was reported.
func deepCopy(v interface{}) interface{} {
	if v == nil {
		return nil
	}
	return copyValue(reflect.ValueOf(v)).Interface()
}

func copyValue(v reflect.Value) reflect.Value {
	switch v.Kind() {
	case reflect.Ptr:
		if v.IsNil() {
			return v
		}
		n := reflect.New(v.Type().Elem())
		n.Elem().Set(copyValue(v.Elem()))
		return n
	case reflect.Interface:
		if v.IsNil() {
			return v
		}
		n := reflect.New(v.Type()).Elem()
		n.Set(copyValue(v.Elem()))
		return n
	case reflect.Slice:
		if v.IsNil() {
			return v
		}
		n := reflect.MakeSlice(v.Type(), v.Len(), v.Len())
		for i := 0; i < v.Len(); i++ {
			n.Index(i).Set(copyValue(v.Index(i)))
		}
		return n
	case reflect.Map:
		if v.IsNil() {
			return v
		}
		n := reflect.MakeMapWithSize(v.Type(), v.Len())
		for _, k := range v.MapKeys() {
			n.SetMapIndex(k, copyValue(v.MapIndex(k)))
		}
		return n
	case reflect.Struct:
		n := reflect.New(v.Type()).Elem()
		n.Set(v) // unexported fields, as in time.Time, are copied as they are
		for i := 0; i < v.NumField(); i++ {
			if f := n.Field(i); f.CanSet() {
				f.Set(copyValue(v.Field(i)))
			}
		}
		return n
	default:
		return v
	}
}
