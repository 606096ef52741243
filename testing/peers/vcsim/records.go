package main

import (
	"sync"
	"time"
)

// PortSetting is the part of a DV port's setting that a reconfiguration
// carried.
type PortSetting struct {
	Operation string        `json:"operation"`
	Key       string        `json:"key"`
	Blocked   *BoolPolicyJS `json:"blocked"` // null: the DVPortConfigSpec had no blocked policy
}

// BoolPolicyJS is a vim25 BoolPolicy; Value is null when the policy had none.
type BoolPolicyJS struct {
	Inherited *bool `json:"inherited"`
	Value     *bool `json:"value"`
}

// PortReconfig is one ReconfigureDVPort_Task call.
type PortReconfig struct {
	Seq   int           `json:"seq"`
	Time  time.Time     `json:"time"`
	User  string        `json:"user"`
	Dvs   moRef         `json:"dvs"`   // _this as the client sent it
	Found bool          `json:"found"` // whether _this named a distributed switch
	Ports []PortSetting `json:"ports"`
	Fault string        `json:"fault,omitempty"` // fault string of the reply, or error of the task
	Task  *moRef        `json:"task,omitempty"`
}

// PortRefresh is one RefreshDVPortState call.
type PortRefresh struct {
	Seq      int       `json:"seq"`
	Time     time.Time `json:"time"`
	User     string    `json:"user"`
	Dvs      moRef     `json:"dvs"`
	Found    bool      `json:"found"`
	PortKeys []string  `json:"portKeys"`
	Fault    string    `json:"fault,omitempty"`
}

// AlarmRecord is one alarm made by CreateAlarm.
type AlarmRecord struct {
	Seq         int         `json:"seq"`
	Time        time.Time   `json:"time"`
	User        string      `json:"user"`
	Alarm       moRef       `json:"alarm"`
	Entity      moRef       `json:"entity"`
	Name        string      `json:"name"`
	SystemName  string      `json:"systemName,omitempty"`
	Description string      `json:"description"`
	Enabled     bool        `json:"enabled"`
	Expression  interface{} `json:"expression"` // the expression with its vim25 type, see expressionJSON
	Setting     interface{} `json:"setting"`
	HasAction   bool        `json:"hasAction"`
}

// recordBook keeps what clients wrote to vCenter.
type recordBook struct {
	mu         sync.Mutex
	seq        int
	userEvents []UserEvent
	alarms     []AlarmRecord
	reconfigs  []PortReconfig
	refreshes  []PortRefresh
}

func newRecordBook() *recordBook { return &recordBook{} }

func (b *recordBook) next() int {
	b.seq++
	return b.seq
}

func (b *recordBook) addUserEvent(e UserEvent) {
	b.mu.Lock()
	e.Seq = b.next()
	b.userEvents = append(b.userEvents, e)
	b.mu.Unlock()
}

func (b *recordBook) addReconfig(r PortReconfig) {
	b.mu.Lock()
	r.Seq = b.next()
	b.reconfigs = append(b.reconfigs, r)
	b.mu.Unlock()
}

func (b *recordBook) addRefresh(r PortRefresh) {
	b.mu.Lock()
	r.Seq = b.next()
	b.refreshes = append(b.refreshes, r)
	b.mu.Unlock()
}

func (b *recordBook) addAlarm(a AlarmRecord) {
	b.mu.Lock()
	a.Seq = b.next()
	b.alarms = append(b.alarms, a)
	b.mu.Unlock()
}

func (b *recordBook) listUserEvents() []UserEvent {
	b.mu.Lock()
	defer b.mu.Unlock()
	return append([]UserEvent{}, b.userEvents...)
}

func (b *recordBook) listAlarms() []AlarmRecord {
	b.mu.Lock()
	defer b.mu.Unlock()
	return append([]AlarmRecord{}, b.alarms...)
}

func (b *recordBook) listReconfigs() []PortReconfig {
	b.mu.Lock()
	defer b.mu.Unlock()
	return append([]PortReconfig{}, b.reconfigs...)
}

func (b *recordBook) listRefreshes() []PortRefresh {
	b.mu.Lock()
	defer b.mu.Unlock()
	return append([]PortRefresh{}, b.refreshes...)
}

// clear forgets the records; the alarms stay in the inventory.
func (b *recordBook) clear() {
	b.mu.Lock()
	b.userEvents, b.alarms, b.reconfigs, b.refreshes = nil, nil, nil, nil
	b.mu.Unlock()
}
