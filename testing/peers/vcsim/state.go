package main

import (
	"net/http"
	"sync"
	"time"

	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
)

// session is a logged-in client, known by the cookie that Login handed out.
type session struct {
	Key  string
	User string
}

// sessionTable follows the sessions that the simulator creates, so that the
// methods served here can check the caller as the simulator would.
type sessionTable struct {
	mu      sync.Mutex
	byID    map[string]session
	cleanup map[string][]func() // run when the session logs out
}

func newSessionTable() *sessionTable {
	return &sessionTable{byID: make(map[string]session), cleanup: make(map[string][]func())}
}

// onLogout runs f when the session with the key logs out.
func (t *sessionTable) onLogout(key string, f func()) {
	t.mu.Lock()
	t.cleanup[key] = append(t.cleanup[key], f)
	t.mu.Unlock()
}

func (t *sessionTable) add(key, user string) {
	t.mu.Lock()
	t.byID[key] = session{Key: key, User: user}
	t.mu.Unlock()
}

func (t *sessionTable) remove(key string) {
	t.mu.Lock()
	delete(t.byID, key)
	fs := t.cleanup[key]
	delete(t.cleanup, key)
	t.mu.Unlock()
	for _, f := range fs {
		f()
	}
}

// lookup returns the session of the request's cookie.
func (t *sessionTable) lookup(r *http.Request) (session, bool) {
	c, err := r.Cookie(soap.SessionCookieName)
	if err != nil {
		return session{}, false
	}
	t.mu.Lock()
	defer t.mu.Unlock()
	s, ok := t.byID[c.Value]
	return s, ok
}

func (t *sessionTable) count() int {
	t.mu.Lock()
	defer t.mu.Unlock()
	return len(t.byID)
}

// Call is one SOAP request as the control interface reports it.
type Call struct {
	Seq     int       `json:"seq"`
	Time    time.Time `json:"time"`
	Method  string    `json:"method"`
	This    moRef     `json:"this"`
	User    string    `json:"user,omitempty"`
	Outcome string    `json:"outcome"`         // "ok", "fault", "injected-fault", "dropped", "held", "pending"
	Fault   string    `json:"fault,omitempty"` // fault string of a fault reply
}

// callLog keeps the most recent SOAP requests.
type callLog struct {
	mu    sync.Mutex
	seq   int
	calls []*Call
}

const maxCalls = 20000

func newCallLog() *callLog { return &callLog{} }

func (l *callLog) add(method string, this types.ManagedObjectReference, user string) *Call {
	l.mu.Lock()
	defer l.mu.Unlock()
	l.seq++
	c := &Call{Seq: l.seq, Time: time.Now(), Method: method, This: wireRef(this), User: user, Outcome: "pending"}
	l.calls = append(l.calls, c)
	if len(l.calls) > maxCalls {
		l.calls = append([]*Call(nil), l.calls[len(l.calls)-maxCalls/2:]...)
	}
	return c
}

func (l *callLog) finish(c *Call, outcome, fault string) {
	l.mu.Lock()
	c.Outcome = outcome
	c.Fault = fault
	l.mu.Unlock()
}

// list returns copies of the calls after seq, of one method if given.
func (l *callLog) list(method string, since int) []Call {
	l.mu.Lock()
	defer l.mu.Unlock()
	out := []Call{}
	for _, c := range l.calls {
		if c.Seq <= since || (method != "" && c.Method != method) {
			continue
		}
		out = append(out, *c)
	}
	return out
}

func (l *callLog) clear() {
	l.mu.Lock()
	l.calls = nil
	l.mu.Unlock()
}

// optionSet holds the switches that make the simulator more lenient than
// vCenter for one test.
type optionSet struct {
	mu   sync.Mutex
	opts Options
}

// Options are set through the control interface.
type Options struct {
	// EmptyDvsRef names the distributed switch (by its reference value) that
	// takes the DV port methods whose _this has no value. vCenter answers
	// such calls with ManagedObjectNotFound, and so does the simulator while
	// this is empty.
	EmptyDvsRef string `json:"emptyDvsRef"`

	// InheritedBlocked makes FetchDVPorts report, for a port whose blocked
	// policy was never set, the policy that the port inherits (inherited
	// true, value false), as vCenter fills every policy of a port's
	// setting. Off, such a port's setting carries no blocked policy.
	InheritedBlocked bool `json:"inheritedBlocked"`
}

func newOptionSet() *optionSet { return &optionSet{} }

func (o *optionSet) get() Options {
	o.mu.Lock()
	defer o.mu.Unlock()
	return o.opts
}

func (o *optionSet) set(opts Options) {
	o.mu.Lock()
	o.opts = opts
	o.mu.Unlock()
}
