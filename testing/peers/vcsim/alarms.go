package main

import (
	"fmt"
	"reflect"
	"sync"
	"time"

	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/methods"
	"github.com/vmware/govmomi/vim25/mo"
	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
)

// alarmManager takes the place of the simulator's AlarmManager, which has
// no methods.
type alarmManager struct {
	mo.AlarmManager

	sim *Simulator

	mu     sync.Mutex
	next   int
	byName map[string]types.ManagedObjectReference // entity value + "\x00" + name
	alarms []types.ManagedObjectReference
}

func (s *Simulator) installAlarmManager() {
	ref := *s.vim.ServiceContent.AlarmManager
	am := &alarmManager{sim: s, byName: make(map[string]types.ManagedObjectReference)}
	am.Self = ref
	if old, ok := simulator.Map.Get(ref).(*mo.AlarmManager); ok {
		am.DefaultExpression = old.DefaultExpression
		am.Description = old.Description
	}
	simulator.Map.Put(am)
}

// CreateAlarm defines an alarm on an entity.
func (am *alarmManager) CreateAlarm(ctx *simulator.Context, req *types.CreateAlarm) soap.HasFault {
	body := new(methods.CreateAlarmBody)
	entity := simulator.Map.Get(req.Entity)
	if _, ok := entity.(mo.Entity); !ok {
		body.Fault_ = objectNotFound(req.Entity)
		return body
	}
	if req.Spec == nil {
		body.Fault_ = newFault("A specified parameter was not correct: spec", &types.InvalidArgument{InvalidProperty: "spec"})
		return body
	}
	spec := *req.Spec.GetAlarmSpec()
	if spec.Name == "" {
		body.Fault_ = newFault("The name '' is invalid.", &types.InvalidName{Name: spec.Name, Entity: &req.Entity})
		return body
	}
	if spec.Expression == nil {
		body.Fault_ = newFault("A specified parameter was not correct: spec.expression", &types.InvalidArgument{InvalidProperty: "spec.expression"})
		return body
	}

	am.mu.Lock()
	k := req.Entity.Value + "\x00" + spec.Name
	if old, taken := am.byName[k]; taken {
		am.mu.Unlock()
		body.Fault_ = newFault(fmt.Sprintf("The name '%s' already exists.", spec.Name), &types.DuplicateName{Name: spec.Name, Object: old})
		return body
	}
	am.next++
	ref := types.ManagedObjectReference{Type: "Alarm", Value: fmt.Sprintf("alarm-%d", 100+am.next)}
	am.byName[k] = ref
	am.alarms = append(am.alarms, ref)
	am.mu.Unlock()

	user := ctx.Session.UserName
	now := time.Now()
	alarm := &mo.Alarm{Info: types.AlarmInfo{
		AlarmSpec:        spec,
		Key:              ref.Value,
		Alarm:            ref,
		Entity:           req.Entity,
		LastModifiedTime: now,
		LastModifiedUser: user,
	}}
	alarm.Self = ref

	ev := &types.AlarmCreatedEvent{
		AlarmEvent: types.AlarmEvent{
			Event: eventArguments(req.Entity),
			Alarm: types.AlarmEventArgument{EntityEventArgument: types.EntityEventArgument{Name: spec.Name}, Alarm: ref},
		},
		Entity: types.ManagedEntityEventArgument{
			EntityEventArgument: types.EntityEventArgument{Name: entityName(req.Entity)},
			Entity:              req.Entity,
		},
	}
	ev.FullFormattedMessage = fmt.Sprintf("Created alarm '%s' on %s", spec.Name, entityName(req.Entity))
	alarm.Info.CreationEventId = am.sim.postEvent(ctx, ev)
	simulator.Map.Put(alarm)

	am.sim.records.addAlarm(AlarmRecord{
		Time:        now,
		User:        user,
		Alarm:       wireRef(ref),
		Entity:      wireRef(req.Entity),
		Name:        spec.Name,
		SystemName:  spec.SystemName,
		Description: spec.Description,
		Enabled:     spec.Enabled,
		Expression:  typedJSON(spec.Expression),
		Setting:     spec.Setting,
		HasAction:   spec.Action != nil,
	})

	body.Res = &types.CreateAlarmResponse{Returnval: ref}
	return body
}

// GetAlarm lists the alarms defined here, on one entity if it is given.
func (am *alarmManager) GetAlarm(ctx *simulator.Context, req *types.GetAlarm) soap.HasFault {
	am.mu.Lock()
	refs := append([]types.ManagedObjectReference(nil), am.alarms...)
	am.mu.Unlock()
	var out []types.ManagedObjectReference
	for _, ref := range refs {
		a, ok := simulator.Map.Get(ref).(*mo.Alarm)
		if !ok {
			continue
		}
		if req.Entity == nil || a.Info.Entity == *req.Entity {
			out = append(out, ref)
		}
	}
	return &methods.GetAlarmBody{Res: &types.GetAlarmResponse{Returnval: out}}
}

// typedJSON shows a vim25 data object in JSON together with its type name,
// which the plain encoding of an interface value loses.
func typedJSON(v interface{}) interface{} {
	if v == nil {
		return nil
	}
	t := reflect.TypeOf(v)
	for t.Kind() == reflect.Ptr {
		t = t.Elem()
	}
	return struct {
		Type  string      `json:"type"`
		Value interface{} `json:"value"`
	}{t.Name(), v}
}
