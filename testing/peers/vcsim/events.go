package main

import (
	"context"
	"fmt"
	"reflect"
	"sort"
	"sync"
	"text/template"
	"time"

	"github.com/google/uuid"
	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/methods"
	"github.com/vmware/govmomi/vim25/mo"
	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
)

// Event history is kept here rather than in the simulator, whose collectors
// ignore the deprecated "type" list of a filter (the one that libHarbec
// fills) and its time range. Every event still goes through the simulator's
// EventManager, which numbers and stamps it; a collector of the simulator
// with an open filter (the tap) passes each one on to this store, which then
// feeds the collectors made by CreateCollectorForEvents.

const (
	maxStoredEvents  = 50000
	defaultPageSize  = 10
	maxPageSize      = 1000
	tapPageSize      = 50
	eventTapRefType  = "VcsimEventTap"
	eventTapRefValue = "event-tap"
)

type eventStore struct {
	sim *Simulator

	mu         sync.Mutex
	events     []types.BaseEvent // oldest first
	lastKey    int32
	collectors map[types.ManagedObjectReference]*eventCollector
	tapRef     types.ManagedObjectReference // the simulator's collector that feeds the store
}

func newEventStore(sim *Simulator) *eventStore {
	return &eventStore{sim: sim, collectors: make(map[types.ManagedObjectReference]*eventCollector)}
}

// startTap opens the simulator collector whose page changes bring each new
// event here.
func (st *eventStore) startTap() error {
	em := st.sim.vim.ServiceContent.EventManager
	res, err := methods.CreateCollectorForEvents(context.Background(), st.sim.vim, &types.CreateCollectorForEvents{
		This:   *em,
		Filter: types.EventFilterSpec{MaxCount: tapPageSize},
	})
	if err != nil {
		return err
	}
	st.mu.Lock()
	st.tapRef = res.Returnval
	st.mu.Unlock()
	simulator.Map.AddHandler(&eventTap{st})
	return nil
}

// eventTap is a registry listener for the tap collector's page.
type eventTap struct{ st *eventStore }

func (t *eventTap) Reference() types.ManagedObjectReference {
	return types.ManagedObjectReference{Type: eventTapRefType, Value: eventTapRefValue}
}
func (t *eventTap) PutObject(mo.Reference)                    {}
func (t *eventTap) RemoveObject(types.ManagedObjectReference) {}

// UpdateObject runs inside the simulator's PostEvent, with its EventManager
// locked, so it must not take any simulator object lock.
func (t *eventTap) UpdateObject(obj mo.Reference, changes []types.PropertyChange) {
	st := t.st
	st.mu.Lock()
	if obj.Reference() != st.tapRef {
		st.mu.Unlock()
		return
	}
	var fresh []types.BaseEvent
	for _, c := range changes {
		if c.Name != "latestPage" {
			continue
		}
		page, ok := c.Val.(*types.ArrayOfEvent)
		if !ok {
			continue
		}
		for _, e := range page.Event {
			if e.GetEvent().Key > st.lastKey {
				fresh = append(fresh, e)
			}
		}
	}
	sort.Slice(fresh, func(i, j int) bool { return fresh[i].GetEvent().Key < fresh[j].GetEvent().Key })
	for _, e := range fresh {
		st.events = append(st.events, e)
		st.lastKey = e.GetEvent().Key
	}
	if len(st.events) > maxStoredEvents {
		st.events = append([]types.BaseEvent(nil), st.events[len(st.events)-maxStoredEvents/2:]...)
	}
	collectors := make([]*eventCollector, 0, len(st.collectors))
	for _, c := range st.collectors {
		collectors = append(collectors, c)
	}
	st.mu.Unlock()

	for _, e := range fresh {
		for _, c := range collectors {
			c.offer(e)
		}
	}
}

// snapshot returns the stored events, oldest first.
func (st *eventStore) snapshot() []types.BaseEvent {
	st.mu.Lock()
	defer st.mu.Unlock()
	return append([]types.BaseEvent(nil), st.events...)
}

func (st *eventStore) add(c *eventCollector) {
	st.mu.Lock()
	st.collectors[c.Self] = c
	st.mu.Unlock()
}

func (st *eventStore) remove(ref types.ManagedObjectReference) {
	st.mu.Lock()
	delete(st.collectors, ref)
	st.mu.Unlock()
}

// dropSession destroys the collectors of a session that logged out, as
// vCenter does.
func (st *eventStore) dropSession(key string) {
	st.mu.Lock()
	var gone []types.ManagedObjectReference
	for ref, c := range st.collectors {
		if c.sessionKey == key {
			gone = append(gone, ref)
			delete(st.collectors, ref)
		}
	}
	st.mu.Unlock()
	for _, ref := range gone {
		simulator.Map.Remove(ref)
	}
}

// postEvent hands an event to the simulator's EventManager, which numbers
// it, and through the tap to the collectors here. It returns the key.
func (s *Simulator) postEvent(ctx *simulator.Context, e types.BaseEvent) int32 {
	em := simulator.Map.EventManager()
	simulator.Map.WithLock(em, func() {
		em.PostEvent(ctx, &types.PostEvent{EventToPost: e})
	})
	return e.GetEvent().Key
}

// eventCollector is an EventHistoryCollector whose latestPage holds the
// newest matching events first, as vCenter's does.
type eventCollector struct {
	mo.EventHistoryCollector

	store      *eventStore
	sessionKey string
	spec       types.EventFilterSpec

	mu       sync.Mutex
	pageSize int
	page     []types.BaseEvent // newest first
	lastKey  int32
}

// The registry locks objects around each method call; the collector guards
// itself, so that the tap never waits for a lock that a caller holds.
func (c *eventCollector) Lock()   {}
func (c *eventCollector) Unlock() {}

// Get is what the property collector reads.
func (c *eventCollector) Get() mo.Reference {
	c.mu.Lock()
	defer c.mu.Unlock()
	return &mo.EventHistoryCollector{
		HistoryCollector: mo.HistoryCollector{Self: c.Self, Filter: c.spec},
		LatestPage:       append([]types.BaseEvent{}, c.page...),
	}
}

// refill rebuilds the page from the store; c.mu is held.
func (c *eventCollector) refill() {
	events := c.store.snapshot()
	page := []types.BaseEvent{}
	for i := len(events) - 1; i >= 0 && len(page) < c.pageSize; i-- {
		if c.matches(events[i]) {
			page = append(page, events[i])
		}
	}
	c.page = page
	if n := len(events); n > 0 {
		c.lastKey = events[n-1].GetEvent().Key
	}
}

func (c *eventCollector) publish() {
	simulator.Map.Update(c, []types.PropertyChange{{Name: "latestPage", Val: append([]types.BaseEvent{}, c.page...)}})
}

// offer puts a new event on the page if it matches the filter.
func (c *eventCollector) offer(e types.BaseEvent) {
	c.mu.Lock()
	defer c.mu.Unlock()
	key := e.GetEvent().Key
	if key <= c.lastKey {
		return // already seen by a refill
	}
	c.lastKey = key
	if !c.matches(e) {
		return
	}
	c.page = append([]types.BaseEvent{e}, c.page...)
	if len(c.page) > c.pageSize {
		c.page = c.page[:c.pageSize]
	}
	c.publish()
}

func (c *eventCollector) matches(e types.BaseEvent) bool {
	spec := &c.spec
	ev := e.GetEvent()
	if len(spec.Type) != 0 && !eventIsOfType(e, spec.Type) {
		return false
	}
	if len(spec.EventTypeId) != 0 && !eventIsOfType(e, spec.EventTypeId) {
		return false
	}
	if spec.EventChainId != 0 && ev.ChainId != spec.EventChainId {
		return false
	}
	if t := spec.Time; t != nil {
		if t.BeginTime != nil && ev.CreatedTime.Before(*t.BeginTime) {
			return false
		}
		if t.EndTime != nil && ev.CreatedTime.After(*t.EndTime) {
			return false
		}
	}
	if u := spec.UserName; u != nil {
		ok := u.SystemUser && ev.UserName == ""
		for _, name := range u.UserList {
			ok = ok || name == ev.UserName
		}
		if !ok {
			return false
		}
	}
	if spec.Entity != nil && !c.entityMatches(e, spec.Entity) {
		return false
	}
	return true
}

// eventIsOfType is true if the event is of one of the named classes or
// derives from one of them.
func eventIsOfType(e types.BaseEvent, names []string) bool {
	kind := reflect.ValueOf(e).Elem().Type()
	want := func(n string) bool {
		for _, x := range names {
			if x == n {
				return true
			}
		}
		return false
	}
	if want(kind.Name()) {
		return true
	}
	f, ok := kind.FieldByNameFunc(want)
	return ok && f.Anonymous
}

// entityMatches follows vCenter: for the root folder every event counts,
// whatever the recursion.
func (c *eventCollector) entityMatches(e types.BaseEvent, by *types.EventFilterSpecByEntity) bool {
	if by.Entity == c.store.sim.vim.ServiceContent.RootFolder {
		return true
	}
	args := eventEntities(e)
	self := false
	for _, a := range args {
		self = self || a == by.Entity
	}
	children := false
	if by.Recursion != types.EventFilterSpecRecursionOptionSelf {
		for _, a := range args {
			for _, p := range ancestors(a) {
				children = children || p == by.Entity
			}
		}
	}
	switch by.Recursion {
	case types.EventFilterSpecRecursionOptionSelf:
		return self
	case types.EventFilterSpecRecursionOptionChildren:
		return children
	default:
		return self || children
	}
}

// eventEntities lists the entities that an event names.
func eventEntities(e types.BaseEvent) []types.ManagedObjectReference {
	ev := e.GetEvent()
	var refs []types.ManagedObjectReference
	if ev.Datacenter != nil {
		refs = append(refs, ev.Datacenter.Datacenter)
	}
	if ev.ComputeResource != nil {
		refs = append(refs, ev.ComputeResource.ComputeResource)
	}
	if ev.Host != nil {
		refs = append(refs, ev.Host.Host)
	}
	if ev.Vm != nil {
		refs = append(refs, ev.Vm.Vm)
	}
	if ev.Ds != nil {
		refs = append(refs, ev.Ds.Datastore)
	}
	if ev.Net != nil {
		refs = append(refs, ev.Net.Network)
	}
	if ev.Dvs != nil {
		refs = append(refs, ev.Dvs.Dvs)
	}
	v := reflect.ValueOf(e).Elem()
	if f := v.FieldByName("Entity"); f.IsValid() {
		switch a := f.Interface().(type) {
		case types.ManagedEntityEventArgument:
			refs = append(refs, a.Entity)
		case *types.ManagedEntityEventArgument:
			if a != nil {
				refs = append(refs, a.Entity)
			}
		}
	}
	return refs
}

// ancestors walks up the inventory from an entity. It reads parents without
// taking object locks: it runs where the EventManager is locked.
func ancestors(ref types.ManagedObjectReference) []types.ManagedObjectReference {
	var out []types.ManagedObjectReference
	for i := 0; i < 64; i++ {
		obj, ok := simulator.Map.Get(ref).(mo.Entity)
		if !ok {
			break
		}
		parent := obj.Entity().Parent
		if parent == nil {
			break
		}
		out = append(out, *parent)
		ref = *parent
	}
	return out
}

func validatePageSize(n int32) (int, *soap.Fault) {
	if n == 0 {
		return defaultPageSize, nil
	}
	if n < 0 || n > maxPageSize {
		return 0, newFault("A specified parameter was not correct: maxCount", &types.InvalidArgument{InvalidProperty: "maxCount"})
	}
	return int(n), nil
}

// SetCollectorPageSize resizes the latest page and fills it anew.
func (c *eventCollector) SetCollectorPageSize(ctx *simulator.Context, req *types.SetCollectorPageSize) soap.HasFault {
	body := new(methods.SetCollectorPageSizeBody)
	size, fault := validatePageSize(req.MaxCount)
	if fault != nil {
		body.Fault_ = fault
		return body
	}
	c.mu.Lock()
	before := len(c.page)
	var firstBefore int32
	if before > 0 {
		firstBefore = c.page[0].GetEvent().Key
	}
	c.pageSize = size
	c.refill()
	changed := len(c.page) != before || (len(c.page) > 0 && c.page[0].GetEvent().Key != firstBefore)
	if changed {
		c.publish()
	}
	c.mu.Unlock()
	body.Res = new(types.SetCollectorPageSizeResponse)
	return body
}

// DestroyCollector removes the collector.
func (c *eventCollector) DestroyCollector(ctx *simulator.Context, req *types.DestroyCollector) soap.HasFault {
	c.store.remove(c.Self)
	simulator.Map.Remove(c.Self)
	return &methods.DestroyCollectorBody{Res: new(types.DestroyCollectorResponse)}
}

// ResetCollector and RewindCollector move a reading position that this
// collector does not keep: reading goes by latestPage.
func (c *eventCollector) ResetCollector(ctx *simulator.Context, req *types.ResetCollector) soap.HasFault {
	return &methods.ResetCollectorBody{Res: new(types.ResetCollectorResponse)}
}

func (c *eventCollector) RewindCollector(ctx *simulator.Context, req *types.RewindCollector) soap.HasFault {
	return &methods.RewindCollectorBody{Res: new(types.RewindCollectorResponse)}
}

// createCollectorForEvents serves EventManager.CreateCollectorForEvents.
func (s *Simulator) createCollectorForEvents(ctx *simulator.Context, sess session, m *simulator.Method) soap.HasFault {
	req := m.Body.(*types.CreateCollectorForEvents)
	body := new(methods.CreateCollectorForEventsBody)
	if req.This != *s.vim.ServiceContent.EventManager {
		body.Fault_ = objectNotFound(req.This)
		return body
	}
	size, fault := validatePageSize(req.Filter.MaxCount)
	if fault != nil {
		body.Fault_ = fault
		return body
	}
	c := &eventCollector{store: s.events, sessionKey: sess.Key, spec: req.Filter, pageSize: size}
	c.Self = types.ManagedObjectReference{
		Type:  "EventHistoryCollector",
		Value: fmt.Sprintf("session[%s]%s", sess.Key, uuid.New()),
	}
	c.Filter = req.Filter
	// Known to the store before the page is filled, so that no event that
	// comes in between is missed.
	s.events.add(c)
	c.mu.Lock()
	c.refill()
	c.mu.Unlock()
	simulator.Map.Put(c)
	body.Res = &types.CreateCollectorForEventsResponse{Returnval: c.Self}
	return body
}

// UserEvent is one LogUserEvent call, as the control interface reports it.
type UserEvent struct {
	Seq      int       `json:"seq"`
	Time     time.Time `json:"time"`
	User     string    `json:"user"`
	Entity   moRef     `json:"entity"`
	Msg      string    `json:"msg"`
	EventKey int32     `json:"eventKey"`
}

// logUserEvent serves EventManager.LogUserEvent: a GeneralUserEvent on the
// entity goes into the event history.
func (s *Simulator) logUserEvent(ctx *simulator.Context, sess session, m *simulator.Method) soap.HasFault {
	req := m.Body.(*types.LogUserEvent)
	body := new(methods.LogUserEventBody)
	if req.This != *s.vim.ServiceContent.EventManager {
		body.Fault_ = objectNotFound(req.This)
		return body
	}
	if simulator.Map.Get(req.Entity) == nil {
		body.Fault_ = objectNotFound(req.Entity)
		return body
	}
	ev := &types.GeneralUserEvent{
		GeneralEvent: types.GeneralEvent{Event: eventArguments(req.Entity), Message: req.Msg},
		Entity: &types.ManagedEntityEventArgument{
			EntityEventArgument: types.EntityEventArgument{Name: entityName(req.Entity)},
			Entity:              req.Entity,
		},
	}
	ev.FullFormattedMessage = "User logged event: " + req.Msg
	key := s.postEvent(ctx, ev)
	s.records.addUserEvent(UserEvent{Time: time.Now(), User: sess.User, Entity: wireRef(req.Entity), Msg: req.Msg, EventKey: key})
	body.Res = new(types.LogUserEventResponse)
	return body
}

func objectNotFound(ref types.ManagedObjectReference) *soap.Fault {
	return newFault("The object '"+fmt.Sprintf("vim.%s:%s", wireType(ref.Type), ref.Value)+"' has already been deleted or has not been completely created",
		&types.ManagedObjectNotFound{Obj: ref})
}

// Messages of the events that tests post, in vCenter's words. The simulator
// has none for most of them, and the one it has for VmMigratedEvent does
// not parse, which makes its PostEvent panic.
var eventFormats = map[string]string{
	"VmMigratedEvent":         "Migration of virtual machine {{with .Vm}}{{.Name}}{{end}} from {{.SourceHost.Name}} to {{with .Host}}{{.Name}}{{end}} completed",
	"DrsVmMigratedEvent":      "Migrating {{with .Vm}}{{.Name}}{{end}} from {{.SourceHost.Name}} to {{with .Host}}{{.Name}}{{end}} completed (DRS)",
	"VmBeingHotMigratedEvent": "Migrating {{with .Vm}}{{.Name}}{{end}} from {{with .Host}}{{.Name}}{{end}} to {{.DestHost.Name}}",
	"VmFailedMigrateEvent":    "Cannot migrate {{with .Vm}}{{.Name}}{{end}} from {{with .Host}}{{.Name}}{{end}} to {{.DestHost.Name}}",
	"DvsPortLinkUpEvent":      "The dvPort {{.PortKey}} link was up in the vSphere Distributed Switch {{with .Dvs}}{{.Name}}{{end}}",
	"DvsPortLinkDownEvent":    "The dvPort {{.PortKey}} link was down in the vSphere Distributed Switch {{with .Dvs}}{{.Name}}{{end}}",
}

// fixEventMessages installs the messages above and replaces any message
// format of the simulator that does not parse by its description.
func fixEventMessages() {
	em := simulator.Map.EventManager()
	simulator.Map.WithLock(em, func() {
		seen := map[string]bool{}
		infos := em.Description.EventInfo
		for i := range infos {
			info := &infos[i]
			seen[info.Key] = true
			if f, ok := eventFormats[info.Key]; ok {
				info.FullFormat = f
			}
			if _, err := template.New(info.Key).Parse(info.FullFormat); err != nil {
				info.FullFormat = info.Description
			}
		}
		keys := make([]string, 0, len(eventFormats))
		for k := range eventFormats {
			keys = append(keys, k)
		}
		sort.Strings(keys)
		for _, k := range keys {
			if !seen[k] {
				infos = append(infos, types.EventDescriptionEventDetail{Key: k, Description: k, Category: "info", FullFormat: eventFormats[k]})
			}
		}
		em.Description.EventInfo = infos
	})
}
