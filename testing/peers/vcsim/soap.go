package main

import (
	"bytes"
	"fmt"
	"io"
	"net"
	"net/http"
	"reflect"
	"regexp"
	"strings"

	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25"
	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
	"github.com/vmware/govmomi/vim25/xml"
)

// The simulator's distributed switch is of the Go type DistributedVirtualSwitch
// and carries that name as its managed object type, where vCenter reports
// VmwareDistributedVirtualSwitch. The simulator's property bookkeeping is tied
// to the internal name, so the switch keeps it inside and the wire shows the
// vCenter name: requests are translated on the way in, replies on the way out.
const (
	dvsInternalType = "DistributedVirtualSwitch"
	dvsWireType     = "VmwareDistributedVirtualSwitch"
)

var (
	// a reference's type attribute, and the text of a <type> element as in
	// PropertySpec and TraversalSpec
	inboundDvsAttr    = []byte(` type="` + dvsWireType + `"`)
	inboundDvsElement = regexp.MustCompile(`(<(?:[\w.-]+:)?type(?:\s[^>]*)?>)\s*` + dvsWireType + `\s*(</(?:[\w.-]+:)?type>)`)
	outboundDvsAttr   = []byte(` type="` + dvsInternalType + `"`)
	faultStringRE     = regexp.MustCompile(`(?s)<faultstring>(.*?)</faultstring>`)

	xsiLongDecl    = []byte(` xmlns:XMLSchema-instance="http://www.w3.org/2001/XMLSchema-instance"`)
	xsiLongPrefix  = []byte(` XMLSchema-instance:type="`)
	xsiShortPrefix = []byte(` xsi:type="`)
)

func toInternalTypes(body []byte) []byte {
	if !bytes.Contains(body, []byte(dvsWireType)) {
		return body
	}
	body = bytes.ReplaceAll(body, inboundDvsAttr, outboundDvsAttr)
	return inboundDvsElement.ReplaceAll(body, []byte("${1}"+dvsInternalType+"${2}"))
}

// toWireTypes also writes xsi:type where govmomi's encoder declares the
// schema instance namespace anew on nested values under the prefix
// "XMLSchema-instance"; the envelope declares xsi, as vCenter's does.
func toWireTypes(body []byte) []byte {
	body = bytes.ReplaceAll(body, outboundDvsAttr, inboundDvsAttr)
	if bytes.Contains(body, xsiLongDecl) {
		body = bytes.ReplaceAll(body, xsiLongDecl, nil)
		body = bytes.ReplaceAll(body, xsiLongPrefix, xsiShortPrefix)
	}
	return body
}

func wireType(t string) string {
	if t == dvsInternalType {
		return dvsWireType
	}
	return t
}

func internalType(t string) string {
	if t == dvsWireType {
		return dvsInternalType
	}
	return t
}

// moRef is a managed object reference in the control interface's JSON, with
// the type as vCenter names it.
type moRef struct {
	Type  string `json:"type"`
	Value string `json:"value"`
}

func wireRef(r types.ManagedObjectReference) moRef {
	return moRef{Type: wireType(r.Type), Value: r.Value}
}

func optWireRef(r *types.ManagedObjectReference) *moRef {
	if r == nil {
		return nil
	}
	w := wireRef(*r)
	return &w
}

// typeFunc resolves xsi:type names, also when they carry a namespace prefix
// such as "ns2:TraversalSpec".
func typeFunc(name string) (reflect.Type, bool) {
	if i := strings.LastIndexByte(name, ':'); i >= 0 {
		name = name[i+1:]
	}
	return types.TypeFunc()(name)
}

// ownHandler serves a vim25 method here rather than in the simulator.
type ownHandler func(ctx *simulator.Context, sess session, m *simulator.Method) soap.HasFault

func (s *Simulator) ownHandlers() map[string]ownHandler {
	return map[string]ownHandler{
		"CreateCollectorForEvents": s.createCollectorForEvents,
		"LogUserEvent":             s.logUserEvent,
		"FetchDVPorts":             s.fetchDVPorts,
		"ReconfigureDVPort_Task":   s.reconfigureDVPort,
		"RefreshDVPortState":       s.refreshDVPortState,
		"QueryNetworkHint":         s.queryNetworkHint,
	}
}

// serveSOAP is the SOAP endpoint: it logs the call, applies injected faults,
// serves the methods added here and hands the rest to the simulator.
func (s *Simulator) serveSOAP(w http.ResponseWriter, r *http.Request) {
	if r.Method != http.MethodPost {
		w.WriteHeader(http.StatusMethodNotAllowed)
		return
	}
	raw, err := io.ReadAll(r.Body)
	_ = r.Body.Close()
	if err != nil {
		w.WriteHeader(http.StatusBadRequest)
		return
	}
	if s.trace != nil {
		s.trace.Printf("request from %s: %s", r.RemoteAddr, raw)
	}
	body := toInternalTypes(raw)

	method, decodeErr := simulator.UnmarshalBody(typeFunc, body)
	name := "?"
	var this types.ManagedObjectReference
	if decodeErr == nil {
		name = method.Name
		this = method.This
	}
	sess, loggedIn := s.sessions.lookup(r)
	call := s.calls.add(name, this, sess.User)

	if rule, ok := s.faults.match(name, this.Value); ok {
		if s.replyOf(w, call, rule) {
			return
		}
		if spoilsReply(rule.Kind) {
			real, rec := w, &recorder{header: make(http.Header)}
			w = rec
			defer func() {
				if rec.code == 0 {
					rec.code = http.StatusOK
				}
				s.deliver(real, rec, rule)
			}()
		}
		switch rule.Kind {
		case faultSOAP:
			detail, _ := faultFor(rule)
			s.writeFault(w, call, "injected-fault", &soap.Fault{Code: "ServerFaultCode", String: rule.FaultString, Detail: faultDetailOf(detail)})
			return
		case faultDrop:
			s.calls.finish(call, "dropped", "")
			dropConnection(w, rule.Reset)
			return
		case faultHang:
			s.calls.finish(call, "held", "")
			s.faults.hold(rule.ID, 1)
			select {
			case <-rule.release:
				s.faults.hold(rule.ID, -1)
				s.calls.finish(call, "pending", "")
			case <-s.stop:
				s.faults.hold(rule.ID, -1)
				dropConnection(w, false)
				return
			case <-r.Context().Done():
				s.faults.hold(rule.ID, -1)
				return
			}
		}
	}

	if decodeErr == nil {
		if method.Name == "Login" {
			s.login(w, r, body, method, call)
			return
		}
		if h, ok := s.ownHandlers()[method.Name]; ok {
			if !loggedIn {
				s.writeFault(w, call, "fault", notAuthenticated(method.This))
				return
			}
			s.writeResult(w, call, h(simContext(sess.User, sess.Key), sess, method))
			return
		}
	}
	s.forward(w, r, body, call, func(rec *recorder) {
		if decodeErr == nil && method.Name == "Logout" && rec.code == http.StatusOK && loggedIn {
			s.sessions.remove(sess.Key)
			s.events.dropSession(sess.Key)
		}
	})
}

// login checks the credentials as vCenter does and lets the simulator make
// the session, whose cookie is then noted and given vCenter's form.
func (s *Simulator) login(w http.ResponseWriter, r *http.Request, body []byte, method *simulator.Method, call *Call) {
	req := method.Body.(*types.Login)
	if req.UserName != s.cfg.Username || req.Password != s.cfg.Password {
		s.writeFault(w, call, "fault", &soap.Fault{
			Code:   "ServerFaultCode",
			String: "Cannot complete login due to an incorrect user name or password.",
			Detail: faultDetailOf(&types.InvalidLogin{}),
		})
		return
	}
	s.forward(w, r, body, call, func(rec *recorder) {
		if rec.code != http.StatusOK {
			return
		}
		resp := http.Response{Header: rec.header}
		for _, c := range resp.Cookies() {
			if c.Name != soap.SessionCookieName {
				continue
			}
			s.sessions.add(c.Value, req.UserName)
			rec.header.Del("Set-Cookie")
			rec.header.Add("Set-Cookie", fmt.Sprintf(`%s="%s"; Path=/; HttpOnly; Secure`, soap.SessionCookieName, c.Value))
		}
	})
}

// recorder takes the simulator's reply so that it can be looked at and
// translated before it goes out.
type recorder struct {
	header http.Header
	code   int
	body   bytes.Buffer
}

func (r *recorder) Header() http.Header { return r.header }
func (r *recorder) Write(b []byte) (int, error) {
	if r.code == 0 {
		r.code = http.StatusOK
	}
	return r.body.Write(b)
}
func (r *recorder) WriteHeader(code int) { r.code = code }

func (s *Simulator) forward(w http.ResponseWriter, r *http.Request, body []byte, call *Call, after func(*recorder)) {
	r2 := r.Clone(r.Context())
	r2.Body = io.NopCloser(bytes.NewReader(body))
	r2.ContentLength = int64(len(body))
	rec := &recorder{header: make(http.Header)}
	s.model.Service.ServeSDK(rec, r2)
	if rec.code == 0 {
		rec.code = http.StatusOK
	}
	if after != nil {
		after(rec)
	}
	out := toWireTypes(rec.body.Bytes())
	outcome, fault := "ok", ""
	if rec.code != http.StatusOK {
		outcome = "fault"
		if m := faultStringRE.FindSubmatch(out); m != nil {
			fault = xmlUnescape(string(m[1]))
		}
	}
	s.calls.finish(call, outcome, fault)
	for k, v := range rec.header {
		w.Header()[k] = v
	}
	s.send(w, rec.code, out)
}

func (s *Simulator) send(w http.ResponseWriter, code int, out []byte) {
	w.Header().Set("Content-Type", "text/xml; charset=utf-8")
	w.WriteHeader(code)
	_, _ = w.Write(out)
	if s.trace != nil {
		s.trace.Printf("response %d: %s", code, out)
	}
}

func xmlUnescape(s string) string {
	var out string
	if err := xml.Unmarshal([]byte("<x>"+s+"</x>"), &out); err != nil {
		return s
	}
	return out
}

// dropConnection closes the client's connection without a reply. With reset
// the peer sees a TCP reset, otherwise an end of file without a TLS close.
func dropConnection(w http.ResponseWriter, reset bool) {
	_, raw := hijack(w)
	if raw == nil {
		return
	}
	if tcp, ok := raw.(*net.TCPConn); ok && reset {
		_ = tcp.SetLinger(0)
	}
	_ = raw.Close()
}

// hijack takes the client's connection over: the connection as the reply
// would be written to it (TLS), and the socket beneath.
func hijack(w http.ResponseWriter) (net.Conn, net.Conn) {
	hj, ok := w.(http.Hijacker)
	if !ok {
		panic(http.ErrAbortHandler)
	}
	conn, _, err := hj.Hijack()
	if err != nil {
		return nil, nil
	}
	raw := conn
	if tc, ok := conn.(interface{ NetConn() net.Conn }); ok {
		raw = tc.NetConn()
	}
	return conn, raw
}

func notAuthenticated(this types.ManagedObjectReference) *soap.Fault {
	return &soap.Fault{
		Code:   "ServerFaultCode",
		String: "The session is not authenticated.",
		Detail: faultDetailOf(&types.NotAuthenticated{
			NoPermission: types.NoPermission{Object: this, PrivilegeId: "System.View"},
		}),
	}
}

func faultDetailOf(f types.BaseMethodFault) struct {
	Fault types.AnyType `xml:",any,typeattr"`
} {
	var d struct {
		Fault types.AnyType `xml:",any,typeattr"`
	}
	if f != nil {
		d.Fault = f
	}
	return d
}

// newFault makes the fault of a method served here.
func newFault(msg string, f types.BaseMethodFault) *soap.Fault {
	return &soap.Fault{Code: "ServerFaultCode", String: msg, Detail: faultDetailOf(f)}
}

// The envelope of replies, in the form that the simulator and vCenter use.
type envelope struct {
	XMLName xml.Name    `xml:"soapenv:Envelope"`
	Enc     string      `xml:"xmlns:soapenc,attr"`
	Env     string      `xml:"xmlns:soapenv,attr"`
	XSD     string      `xml:"xmlns:xsd,attr"`
	XSI     string      `xml:"xmlns:xsi,attr"`
	Body    interface{} `xml:"soapenv:Body"`
}

type faultBody struct {
	Fault *wireFault `xml:"soapenv:Fault"`
}

type wireFault struct {
	Code   string `xml:"faultcode"`
	String string `xml:"faultstring"`
	Detail *struct {
		Fault *faultDetail
	} `xml:"detail,omitempty"`
}

type faultDetail struct {
	Fault types.AnyType
}

// MarshalXML names the detail element after the fault, "InvalidLoginFault"
// for InvalidLogin, as vCenter does.
func (d *faultDetail) MarshalXML(e *xml.Encoder, start xml.StartElement) error {
	t := reflect.TypeOf(d.Fault)
	if t.Kind() == reflect.Ptr {
		t = t.Elem()
	}
	kind := t.Name()
	start.Name.Local = kind + "Fault"
	start.Attr = append(start.Attr,
		xml.Attr{Name: xml.Name{Local: "xmlns"}, Value: "urn:" + vim25.Namespace},
		xml.Attr{Name: xml.Name{Local: "xsi:type"}, Value: kind})
	return e.EncodeElement(d.Fault, start)
}

// resultBody writes <XResponse xmlns="urn:vim25"> around the Res of a
// methods.XBody.
type resultBody struct {
	Body soap.HasFault
}

func (r *resultBody) MarshalXML(e *xml.Encoder, start xml.StartElement) error {
	val := reflect.ValueOf(r.Body).Elem().FieldByName("Res")
	if !val.IsValid() || val.IsNil() {
		return fmt.Errorf("%T: no result", r.Body)
	}
	res := xml.StartElement{Name: xml.Name{Space: "urn:" + vim25.Namespace, Local: val.Elem().Type().Name()}}
	if err := e.EncodeToken(start); err != nil {
		return err
	}
	if err := e.EncodeElement(val.Interface(), res); err != nil {
		return err
	}
	return e.EncodeToken(start.End())
}

func encodeEnvelope(body interface{}) ([]byte, error) {
	var out bytes.Buffer
	out.WriteString(xml.Header)
	enc := xml.NewEncoder(&out)
	err := enc.Encode(&envelope{
		Enc:  "http://schemas.xmlsoap.org/soap/encoding/",
		Env:  "http://schemas.xmlsoap.org/soap/envelope/",
		XSD:  "http://www.w3.org/2001/XMLSchema",
		XSI:  "http://www.w3.org/2001/XMLSchema-instance",
		Body: body,
	})
	if err == nil {
		err = enc.Flush()
	}
	return out.Bytes(), err
}

func (s *Simulator) writeResult(w http.ResponseWriter, call *Call, res soap.HasFault) {
	if f := res.Fault(); f != nil {
		s.writeFault(w, call, "fault", f)
		return
	}
	out, err := encodeEnvelope(&resultBody{res})
	if err != nil {
		s.logger.Printf("encoding the reply of %s: %v", call.Method, err)
		s.writeFault(w, call, "fault", newFault(err.Error(), &types.SystemError{Reason: err.Error()}))
		return
	}
	s.calls.finish(call, "ok", "")
	s.send(w, http.StatusOK, toWireTypes(out))
}

func (s *Simulator) writeFault(w http.ResponseWriter, call *Call, outcome string, f *soap.Fault) {
	wf := &wireFault{Code: f.Code, String: f.String}
	if f.Detail.Fault != nil {
		wf.Detail = &struct{ Fault *faultDetail }{&faultDetail{f.Detail.Fault}}
	}
	out, err := encodeEnvelope(&faultBody{wf})
	if err != nil {
		s.logger.Printf("encoding a fault of %s: %v", call.Method, err)
	}
	s.calls.finish(call, outcome, f.String)
	s.send(w, http.StatusInternalServerError, toWireTypes(out))
}
