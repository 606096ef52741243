package main

import (
	"fmt"
	"reflect"
	"sync"

	"github.com/vmware/govmomi/vim25/types"
)

// Kinds of injected faults.
const (
	faultSOAP = "fault" // a SOAP fault reply with the given fault string
	faultDrop = "drop"  // the connection is closed without a reply
	faultHang = "hang"  // no reply until the rule is cleared or the server stops

	// The real reply, spoilt on its way out.
	faultDropMid  = "dropMidReply" // status, headers and half the body, then the connection closes
	faultTrickle  = "trickle"      // sent at bytesPerSecond (default 1)
	faultTruncate = "truncate"     // cut at half, with a Content-Length that says so
	faultCorrupt  = "corrupt"      // a closing tag in the middle mangled
	faultHuge     = "huge"         // blanks inside the body up to bytes (default 100 MB), streamed

	// Replies of their own.
	faultWrongShape = "wrongShape" // well-formed SOAP whose body holds an element nobody asked for
	faultStatus     = "status"     // an HTTP status with a page of HTML, as a proxy in front would send
	faultReplace    = "replace"    // status 200 with the given SOAP body
)

// spoilsReply tells the kinds that take the real reply and change it.
func spoilsReply(kind string) bool {
	switch kind {
	case faultDropMid, faultTrickle, faultTruncate, faultCorrupt, faultHuge:
		return true
	}
	return false
}

// FaultRule is one injected fault, as the control interface takes and shows it.
type FaultRule struct {
	ID     int    `json:"id"`
	Method string `json:"method"` // vim25 method name, e.g. "WaitForUpdates", "ReconfigureDVPort_Task"
	Kind   string `json:"kind"`   // "fault", "drop" or "hang"
	// This, if set, limits the rule to calls whose _this has this value,
	// e.g. the network system of one host.
	This string `json:"this,omitempty"`

	// For "fault": the faultstring, and the vim25 fault type that goes into
	// the detail ("SystemError" when empty; "none" for no detail at all).
	FaultString string `json:"faultString,omitempty"`
	FaultType   string `json:"faultType,omitempty"`

	// For "drop": reset the TCP connection instead of closing it.
	Reset bool `json:"reset,omitempty"`

	BytesPerSecond int    `json:"bytesPerSecond,omitempty"` // "trickle"
	Chunk          int    `json:"chunk,omitempty"`          // "trickle": bytes per write (default 1)
	Bytes          int64  `json:"bytes,omitempty"`          // "huge"
	Status         int    `json:"status,omitempty"`         // "status"
	Body           string `json:"body,omitempty"`           // "replace": the inside of soapenv:Body

	// Count is the number of calls the rule hits before it retires itself;
	// 0 keeps it until it is cleared. After is the number of matching calls
	// that pass untouched before the rule starts to hit.
	Count int `json:"count"`
	After int `json:"after,omitempty"`

	Hits int `json:"hits"` // calls hit so far
	Held int `json:"held"` // requests held right now ("hang" only)

	release chan struct{} // closed when the rule is cleared
	seen    int           // matching calls so far, hit or not
}

type faultTable struct {
	mu     sync.Mutex
	nextID int
	rules  []*FaultRule
	// retired "hang" rules whose requests may still be held
	retired []*FaultRule
}

func newFaultTable() *faultTable { return &faultTable{} }

// faultFor makes the detail fault of an injected SOAP fault.
func faultFor(rule *FaultRule) (types.BaseMethodFault, error) {
	switch rule.FaultType {
	case "none":
		return nil, nil
	case "", "SystemError":
		return &types.SystemError{Reason: rule.FaultString}, nil
	}
	typ, ok := types.TypeFunc()(rule.FaultType)
	if !ok {
		return nil, fmt.Errorf("unknown fault type %q", rule.FaultType)
	}
	f, ok := reflect.New(typ).Interface().(types.BaseMethodFault)
	if !ok {
		return nil, fmt.Errorf("%q is not a vim25 fault type", rule.FaultType)
	}
	return f, nil
}

func (t *faultTable) add(rule FaultRule) (FaultRule, error) {
	if rule.Method == "" {
		return rule, fmt.Errorf("a fault rule needs a method")
	}
	switch rule.Kind {
	case faultSOAP:
		if _, err := faultFor(&rule); err != nil {
			return rule, err
		}
	case faultDrop, faultHang, faultDropMid, faultTruncate, faultCorrupt, faultWrongShape, faultReplace:
	case faultTrickle:
		if rule.BytesPerSecond <= 0 {
			rule.BytesPerSecond = 1
		}
		if rule.Chunk <= 0 {
			rule.Chunk = 1
		}
	case faultHuge:
		if rule.Bytes <= 0 {
			rule.Bytes = 100 << 20
		}
	case faultStatus:
		if rule.Status < 100 || rule.Status > 999 {
			return rule, fmt.Errorf("a status fault needs a status between 100 and 999")
		}
	default:
		return rule, fmt.Errorf("unknown fault kind %q", rule.Kind)
	}
	if rule.Count < 0 || rule.After < 0 {
		return rule, fmt.Errorf("count and after must not be negative")
	}
	t.mu.Lock()
	defer t.mu.Unlock()
	t.nextID++
	r := rule
	r.ID = t.nextID
	r.Hits, r.Held, r.seen = 0, 0, 0
	r.release = make(chan struct{})
	t.rules = append(t.rules, &r)
	return r, nil
}

// match finds the first live rule for the method and counts the call
// against it. It returns a copy of the rule and its release channel.
func (t *faultTable) match(method, this string) (*FaultRule, bool) {
	t.mu.Lock()
	defer t.mu.Unlock()
	for i, r := range t.rules {
		if r.Method != method || (r.This != "" && r.This != this) {
			continue
		}
		r.seen++
		if r.seen <= r.After {
			// The first calls pass; a later rule for the same method may hit them.
			continue
		}
		r.Hits++
		hit := *r
		if r.Count > 0 && r.Hits >= r.Count {
			// Retired: it no longer matches, but a request it holds stays held
			// until the rules are cleared.
			t.rules = append(t.rules[:i:i], t.rules[i+1:]...)
			if r.Kind == faultHang {
				t.retired = append(t.retired, r)
			}
		}
		return &hit, true
	}
	return nil, false
}

// hold counts a request in (delta 1) or out (delta -1) of the rule's hold.
func (t *faultTable) hold(id int, delta int) {
	t.mu.Lock()
	defer t.mu.Unlock()
	for _, r := range t.rules {
		if r.ID == id {
			r.Held += delta
		}
	}
	keep := t.retired[:0]
	for _, r := range t.retired {
		if r.ID == id {
			r.Held += delta
			if r.Held <= 0 {
				continue // retired and holding nothing: forget it
			}
		}
		keep = append(keep, r)
	}
	t.retired = keep
}

func (t *faultTable) list() []FaultRule {
	t.mu.Lock()
	defer t.mu.Unlock()
	out := []FaultRule{}
	for _, r := range t.rules {
		out = append(out, *r)
	}
	return out
}

// remove retires one rule and releases what it holds; false if unknown.
func (t *faultTable) remove(id int) bool {
	t.mu.Lock()
	defer t.mu.Unlock()
	found := false
	keep := t.rules[:0]
	for _, r := range t.rules {
		if r.ID == id {
			close(r.release)
			found = true
			continue
		}
		keep = append(keep, r)
	}
	t.rules = keep
	keepRetired := t.retired[:0]
	for _, r := range t.retired {
		if r.ID == id {
			close(r.release)
			found = true
			continue
		}
		keepRetired = append(keepRetired, r)
	}
	t.retired = keepRetired
	return found
}

// clear drops all rules and releases every held request.
func (t *faultTable) clear() {
	t.mu.Lock()
	defer t.mu.Unlock()
	for _, r := range t.rules {
		close(r.release)
	}
	for _, r := range t.retired {
		close(r.release)
	}
	t.rules = nil
	t.retired = nil
}
