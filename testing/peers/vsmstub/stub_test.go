package main

import (
	"bufio"
	"bytes"
	"crypto/tls"
	"encoding/base64"
	"encoding/json"
	"fmt"
	"io"
	"net"
	"net/http"
	"os"
	"regexp"
	"strconv"
	"strings"
	"testing"
	"time"
)

type testStub struct {
	t        *testing.T
	url, ctl string
	stdin    *io.PipeWriter
	sig      chan os.Signal
	done     chan error
}

// startStub runs the command's own run() with a pipe as stdin and reads
// the two address lines it prints.
func startStub(t *testing.T, args ...string) *testStub {
	t.Helper()
	inR, inW := io.Pipe()
	outR, outW := io.Pipe()
	s := &testStub{t: t, stdin: inW, sig: make(chan os.Signal, 1), done: make(chan error, 1)}
	go func() {
		s.done <- run(append([]string{"-watch-parent=false"}, args...), inR, outW, io.Discard, s.sig)
		outW.Close()
	}()
	lines := bufio.NewReader(outR)
	urlRe := regexp.MustCompile(`^VSM_URL=(https?://127\.0\.0\.1:[0-9]+)\n$`)
	ctlRe := regexp.MustCompile(`^VSM_CONTROL=(http://127\.0\.0\.1:[0-9]+)\n$`)
	for _, re := range []*regexp.Regexp{urlRe, ctlRe} {
		l, err := lines.ReadString('\n')
		m := re.FindStringSubmatch(l)
		if err != nil || m == nil {
			t.Fatalf("start-up line %q (%v) doesn't match %s", l, err, re)
		}
		if re == urlRe {
			s.url = m[1]
		} else {
			s.ctl = m[1]
		}
	}
	go io.Copy(io.Discard, outR)
	t.Cleanup(func() { s.stop() })
	return s
}

func (s *testStub) stop() error {
	s.stdin.Close()
	select {
	case err := <-s.done:
		s.done <- err
		return err
	case <-time.After(5 * time.Second):
		s.t.Fatal("stub did not stop after stdin closed")
		return nil
	}
}

var client = &http.Client{
	Timeout:       10 * time.Second,
	CheckRedirect: func(*http.Request, []*http.Request) error { return http.ErrUseLastResponse },
	Transport: &http.Transport{
		DisableKeepAlives: true,
		TLSClientConfig:   &tls.Config{InsecureSkipVerify: true},
	},
}

// ctlDo sends a control request and decodes the JSON reply into out.
func (s *testStub) ctlDo(method, path string, body interface{}, out interface{}) int {
	s.t.Helper()
	var rd io.Reader
	switch b := body.(type) {
	case nil:
	case string:
		rd = strings.NewReader(b)
	default:
		j, _ := json.Marshal(b)
		rd = bytes.NewReader(j)
	}
	req, _ := http.NewRequest(method, s.ctl+path, rd)
	resp, err := client.Do(req)
	if err != nil {
		s.t.Fatalf("control %s %s: %v", method, path, err)
	}
	defer resp.Body.Close()
	raw, _ := io.ReadAll(resp.Body)
	if out != nil {
		if err := json.Unmarshal(raw, out); err != nil {
			s.t.Fatalf("control %s %s: reply %q: %v", method, path, raw, err)
		}
	}
	return resp.StatusCode
}

// answer installs answers and fails the test if the stub refuses them.
func (s *testStub) answer(cfgs ...map[string]interface{}) {
	s.t.Helper()
	var out map[string]interface{}
	if code := s.ctlDo("POST", "/answers", cfgs, &out); code != 200 {
		s.t.Fatalf("answers refused: %d %v", code, out)
	}
}

func (s *testStub) get(target, user, password string) (*http.Response, []byte, error) {
	req, _ := http.NewRequest("GET", s.url+"/"+target, nil)
	if user != "" || password != "" {
		req.SetBasicAuth(user, password)
	}
	resp, err := client.Do(req)
	if err != nil {
		return nil, nil, err
	}
	defer resp.Body.Close()
	b, err := io.ReadAll(resp.Body)
	return resp, b, err
}

func (s *testStub) mustGet(target string) (int, string) {
	s.t.Helper()
	resp, b, err := s.get(target, "admin", "default")
	if err != nil {
		s.t.Fatalf("GET %s: %v", target, err)
	}
	return resp.StatusCode, string(b)
}

// waitLog waits up to 5 s for count entries after since (with done, none
// of them still pending or hanging).
func (s *testStub) waitLog(since, count int, done bool) []LogEntry {
	s.t.Helper()
	for start := time.Now(); time.Since(start) < 5*time.Second; time.Sleep(10 * time.Millisecond) {
		var got []LogEntry
		for _, e := range s.logEntries("") {
			if e.Seq > since && (!done || e.Outcome != "pending" && e.Outcome != "hanging") {
				got = append(got, e)
			}
		}
		if len(got) >= count {
			return got
		}
	}
	s.t.Fatalf("log has not %d entries after %d", count, since)
	return nil
}

func (s *testStub) logEntries(query string) []LogEntry {
	s.t.Helper()
	var out struct{ Requests []LogEntry }
	s.ctlDo("GET", "/log"+query, nil, &out)
	return out.Requests
}

// rawConn sends a request target exactly as given; the reply is read raw.
func (s *testStub) rawConn(target string) (net.Conn, *bufio.Reader) {
	s.t.Helper()
	c, err := net.Dial("tcp", strings.TrimPrefix(s.url, "http://"))
	if err != nil {
		s.t.Fatal(err)
	}
	auth := base64.StdEncoding.EncodeToString([]byte("admin:default"))
	fmt.Fprintf(c, "GET %s HTTP/1.1\r\nHost: x\r\nAuthorization: Basic %s\r\nConnection: close\r\n\r\n", target, auth)
	return c, bufio.NewReader(c)
}

func readHead(t *testing.T, r *bufio.Reader) (int, http.Header) {
	t.Helper()
	status, err := r.ReadString('\n')
	if err != nil {
		t.Fatal(err)
	}
	code, _ := strconv.Atoi(strings.Fields(status)[1])
	h := http.Header{}
	for {
		l, err := r.ReadString('\n')
		if err != nil {
			t.Fatal(err)
		}
		l = strings.TrimRight(l, "\r\n")
		if l == "" {
			return code, h
		}
		kv := strings.SplitN(l, ":", 2)
		h.Add(kv[0], strings.TrimSpace(kv[1]))
	}
}

func TestStartupLinesAndShutdown(t *testing.T) {
	s := startStub(t)
	var h map[string]interface{}
	if code := s.ctlDo("GET", "/health", nil, &h); code != 200 || h["url"] != s.url {
		t.Fatalf("health %d %v", code, h)
	}
	// A request that hangs must not hold up the stop, and must be cut.
	s.answer(map[string]interface{}{"path": "hang", "hang": true})
	errc := make(chan error, 1)
	go func() { _, _, err := s.get("hang", "admin", "default"); errc <- err }()
	s.waitLog(0, 1, false)
	if err := s.stop(); err != nil {
		t.Fatalf("run returned %v after stdin closed", err)
	}
	select {
	case err := <-errc:
		if err == nil {
			t.Error("hung request got an answer at shutdown")
		}
	case <-time.After(5 * time.Second):
		t.Fatal("hung request still waiting after shutdown")
	}
	if _, err := net.Dial("tcp", strings.TrimPrefix(s.url, "http://")); err == nil {
		t.Error("manager port still open after stop")
	}

	// A signal stops it as well.
	s2 := startStub(t)
	s2.sig <- os.Interrupt
	select {
	case err := <-s2.done:
		s2.done <- err
		if err != nil {
			t.Errorf("run after signal: %v", err)
		}
	case <-time.After(5 * time.Second):
		t.Fatal("stub ignored the signal")
	}

	// Bad flags and a taken port are errors, not a silent start.
	if err := run([]string{"-stdin", "maybe"}, nil, io.Discard, io.Discard, nil); err == nil {
		t.Error("bad -stdin accepted")
	}
	ln, _ := net.Listen("tcp", "127.0.0.1:0")
	defer ln.Close()
	port := strconv.Itoa(ln.Addr().(*net.TCPAddr).Port)
	if err := run([]string{"-port", port}, nil, io.Discard, io.Discard, nil); err == nil {
		t.Error("taken port accepted")
	}
}

func TestTLS(t *testing.T) {
	s := startStub(t, "-tls")
	if !strings.HasPrefix(s.url, "https://") {
		t.Fatalf("url %s", s.url)
	}
	s.answer(map[string]interface{}{"path": "api/2.0/global/heartbeat", "generate": map[string]interface{}{"kind": "heartbeat"}})
	resp, b, err := s.get("api/2.0/global/heartbeat", "admin", "default")
	if err != nil || resp.StatusCode != 200 || resp.ProtoMajor != 1 || !bytes.Contains(b, []byte("<versionInfo>")) {
		t.Fatalf("%v %v %s", err, resp, b)
	}
}

func TestAuthentication(t *testing.T) {
	s := startStub(t, "-user", "nsx", "-password", "secret")
	s.answer(map[string]interface{}{"path": "*", "body": "<ok/>"})
	cases := []struct {
		name, user, pass string
		code             int
	}{
		{"no credentials", "", "", 401},
		{"wrong password", "nsx", "Secret", 401},
		{"wrong user", "NSX", "secret", 401},
		{"empty password", "nsx", "", 401},
		{"right", "nsx", "secret", 200},
	}
	for _, c := range cases {
		resp, body, err := s.get("api/x", c.user, c.pass)
		if err != nil {
			t.Fatalf("%s: %v", c.name, err)
		}
		if resp.StatusCode != c.code {
			t.Errorf("%s: status %d, want %d", c.name, resp.StatusCode, c.code)
		}
		if c.code == 401 && !strings.HasPrefix(resp.Header.Get("WWW-Authenticate"), "Basic ") {
			t.Errorf("%s: 401 without a Basic challenge", c.name)
		}
		if c.code == 200 && string(body) != "<ok/>" {
			t.Errorf("%s: body %q", c.name, body)
		}
	}
	log := s.logEntries("")
	if len(log) != len(cases) {
		t.Fatalf("%d log entries, want %d", len(log), len(cases))
	}
	if e := log[1]; e.User != "nsx" || e.Status != 401 || e.Match != "auth" || e.Outcome != "rejected" {
		t.Errorf("rejected entry %+v", e)
	}
	if e := log[0]; e.HasAuth || e.User != "" {
		t.Errorf("entry without credentials %+v", e)
	}

	// Accounts change at run time; a ":" in the password survives.
	var a Auth
	s.ctlDo("PUT", "/auth", Auth{User: "u", Password: "p:a:ss"}, &a)
	if resp, _, _ := s.get("api/x", "u", "p:a:ss"); resp.StatusCode != 200 {
		t.Errorf("password with colons: %d", resp.StatusCode)
	}
	if resp, _, _ := s.get("api/x", "nsx", "secret"); resp.StatusCode != 401 {
		t.Errorf("old account after change: %d", resp.StatusCode)
	}
}

func TestAnswerMatching(t *testing.T) {
	s := startStub(t)
	s.answer(
		map[string]interface{}{"path": "api/2.0/vdn/virtualwires?pagesize=100&startindex=0", "body": "<exact/>"},
		map[string]interface{}{"path": "/api/2.0/vdn/virtualwires", "body": "<path/>"},
		map[string]interface{}{"path": "api/2.0/vdn/scopes", "body": "<scopes/>"},
	)
	cases := []struct{ target, body, match string }{
		{"api/2.0/vdn/virtualwires?pagesize=100&startindex=0", "<exact/>", "exact"},
		{"api/2.0/vdn/virtualwires?pagesize=100&startindex=100", "<path/>", "path"},
		{"api/2.0/vdn/virtualwires?startindex=0&pagesize=100", "<path/>", "path"},
		{"api/2.0/vdn/virtualwires", "<path/>", "exact"},
		{"api/2.0/vdn/scopes?a=1", "<scopes/>", "path"},
	}
	for _, c := range cases {
		if code, body := s.mustGet(c.target); code != 200 || body != c.body {
			t.Errorf("%s: %d %q, want %q", c.target, code, body, c.body)
		}
	}
	for i, e := range s.logEntries("") {
		if e.Match != cases[i].match {
			t.Errorf("%s: match %s, want %s", cases[i].target, e.Match, cases[i].match)
		}
	}
	if code, _ := s.mustGet("api/2.0/vdn/unknown"); code != 404 {
		t.Errorf("unconfigured path: %d", code)
	}
	s.answer(map[string]interface{}{"path": "*", "status": 503})
	if code, _ := s.mustGet("api/2.0/vdn/unknown"); code != 503 {
		t.Errorf("catch-all: %d", code)
	}
	if code, body := s.mustGet("api/2.0/vdn/scopes"); body != "<scopes/>" {
		t.Errorf("catch-all beat a configured path: %d %q", code, body)
	}

	// A doubled slash is a different target, matched only as sent.
	s.answer(map[string]interface{}{"path": "//api/2.0/vdn/scopes", "body": "<double/>"})
	c, r := s.rawConn("//api/2.0/vdn/scopes")
	defer c.Close()
	code, _ := readHead(t, r)
	body, _ := io.ReadAll(r)
	if code != 200 || string(body) != "<double/>" {
		t.Errorf("double slash: %d %q", code, body)
	}
	log := s.logEntries("")
	if e := log[len(log)-1]; e.URI != "//api/2.0/vdn/scopes" || e.Endpoint != "/api/2.0/vdn/scopes" {
		t.Errorf("double slash logged as %q / %q", e.URI, e.Endpoint)
	}

	// Counted answers queue up; a plain set replaces the queue.
	s.answer(map[string]interface{}{"path": "hb", "status": 500, "times": 2},
		map[string]interface{}{"path": "hb", "status": 401, "times": 1, "append": true},
		map[string]interface{}{"path": "hb", "body": "<up/>", "append": true})
	var got []int
	for i := 0; i < 5; i++ {
		code, _ := s.mustGet("hb")
		got = append(got, code)
	}
	if fmt.Sprint(got) != "[500 500 401 200 200]" {
		t.Errorf("queued answers gave %v", got)
	}
	s.answer(map[string]interface{}{"path": "hb", "status": 404, "times": 1})
	got = nil
	for i := 0; i < 2; i++ {
		code, _ := s.mustGet("hb")
		got = append(got, code)
	}
	if fmt.Sprint(got) != "[404 503]" { // then the catch-all
		t.Errorf("replaced queue gave %v", got)
	}
}

func TestStatusCodesAndRedirects(t *testing.T) {
	s := startStub(t)
	for _, code := range []int{200, 204, 400, 401, 403, 404, 500, 501, 502, 503, 504, 505, 599} {
		body := fmt.Sprintf("<error><code>%d</code></error>", code)
		if code == 204 {
			body = ""
		}
		s.answer(map[string]interface{}{"path": "s", "status": code, "body": body})
		got, b := s.mustGet("s")
		if got != code || b != body {
			t.Errorf("status %d: got %d %q", code, got, b)
		}
	}
	for _, c := range []struct {
		status   int
		redirect string
		location string
	}{
		{0, "api/other", s.url + "/api/other"},
		{301, "/api/moved?x=1", s.url + "/api/moved?x=1"},
		{302, "http://example.invalid/x", "http://example.invalid/x"},
	} {
		s.answer(map[string]interface{}{"path": "r", "status": c.status, "redirect": c.redirect})
		resp, _, err := s.get("r", "admin", "default")
		want := c.status
		if want == 0 {
			want = 302
		}
		if err != nil || resp.StatusCode != want || resp.Header.Get("Location") != c.location {
			t.Errorf("redirect %+v: %v %d %q", c, err, resp.StatusCode, resp.Header.Get("Location"))
		}
	}
}

func TestBrokenBodies(t *testing.T) {
	s := startStub(t)
	good := `<?xml version="1.0"?><vdnScopes><vdnScope><objectId>vdnscope-1</objectId></vdnScope></vdnScopes>`
	if _, err := parseDoc([]byte(good)); err != nil {
		t.Fatal(err)
	}
	cfgs := []map[string]interface{}{
		{"broken": "truncate", "body": good},
		{"broken": "truncate", "generate": map[string]interface{}{"kind": "virtualWires", "count": 3}},
		{"broken": "garbage"},
		{"broken": "html"},
		{"broken": "json"},
		{"broken": "empty"},
		{"broken": "binary"},
		{"broken": "mismatch"},
	}
	for i, sp := range cfgs {
		sp["path"] = "b"
		s.answer(sp)
		code, body := s.mustGet("b")
		if code != 200 {
			t.Errorf("%d %v: status %d", i, sp["broken"], code)
		}
		if _, err := parseDoc([]byte(body)); err == nil {
			t.Errorf("%d %v: body parses: %q", i, sp["broken"], body)
		}
	}
	code, body := s.mustGet("b")
	if code != 200 || !strings.HasPrefix(body, "<?xml") {
		t.Errorf("mismatch body %q", body)
	}
	for _, bad := range []map[string]interface{}{
		{"broken": "truncate"},
		{"broken": "truncate", "body": good, "truncateAt": len(good)},
		{"broken": "nonsense"},
	} {
		bad["path"] = "b"
		if code := s.ctlDo("POST", "/answers", bad, nil); code != 400 {
			t.Errorf("%v accepted: %d", bad, code)
		}
	}
}

// readChunks reads a chunked body and returns its pieces as sent.
func readChunks(t *testing.T, r *bufio.Reader) [][]byte {
	t.Helper()
	var chunks [][]byte
	for {
		l, err := r.ReadString('\n')
		if err != nil {
			t.Fatalf("chunk size line: %v", err)
		}
		n, err := strconv.ParseInt(strings.TrimSpace(l), 16, 64)
		if err != nil {
			t.Fatalf("chunk size %q", l)
		}
		if n == 0 {
			return chunks
		}
		b := make([]byte, n+2)
		if _, err := io.ReadFull(r, b); err != nil {
			t.Fatal(err)
		}
		chunks = append(chunks, b[:n])
	}
}

func TestChunkedTransfer(t *testing.T) {
	s := startStub(t)
	gen, _ := Generate(GenOptions{Kind: "segmentRanges", Count: 4})
	s.answer(map[string]interface{}{"path": "c", "generate": map[string]interface{}{"kind": "segmentRanges", "count": 4},
		"chunkSize": 100, "chunkDelayMs": 20})
	start := time.Now()
	c, r := s.rawConn("/c")
	defer c.Close()
	code, h := readHead(t, r)
	if code != 200 || h.Get("Transfer-Encoding") != "chunked" || h.Get("Content-Length") != "" {
		t.Fatalf("%d %v", code, h)
	}
	chunks := readChunks(t, r)
	elapsed := time.Since(start)
	want := (len(gen.XML) + 99) / 100
	if len(chunks) != want {
		t.Errorf("%d chunks, want %d", len(chunks), want)
	}
	for i, ch := range chunks[:len(chunks)-1] {
		if len(ch) != 100 {
			t.Errorf("chunk %d has %d bytes", i, len(ch))
		}
	}
	if got := bytes.Join(chunks, nil); !bytes.Equal(got, gen.XML) {
		t.Errorf("reassembled body differs")
	}
	if min := time.Duration(want-1) * 20 * time.Millisecond; elapsed < min {
		t.Errorf("took %v, want at least %v", elapsed, min)
	}

	// An empty body still goes chunked.
	s.answer(map[string]interface{}{"path": "c", "body": "", "chunkSize": 10})
	c2, r2 := s.rawConn("/c")
	defer c2.Close()
	if _, h := readHead(t, r2); h.Get("Transfer-Encoding") != "chunked" || len(readChunks(t, r2)) != 0 {
		t.Errorf("empty chunked body: %v", h)
	}
}

func TestLargeBodies(t *testing.T) {
	s := startStub(t)
	var out struct{ Answers []answerInfo }
	s.ctlDo("POST", "/answers", map[string]interface{}{"path": "big",
		"generate": map[string]interface{}{"kind": "virtualWires", "count": 5000}}, &out)
	resp, b, err := s.get("big", "admin", "default")
	if err != nil || resp.ContentLength != int64(len(b)) || len(b) < 3<<20 || out.Answers[0].Bytes != int64(len(b)) {
		t.Fatalf("%v: content length %d, %d bytes, announced %+v", err, resp.ContentLength, len(b), out.Answers)
	}
	doc, err := parseDoc(b)
	if err != nil {
		t.Fatal(err)
	}
	if n := len(readRecords("virtualWires", doc)); n != out.Answers[0].Records || n < 5000 {
		t.Errorf("%d records, announced %d", n, out.Answers[0].Records)
	}

	// Padding keeps the document well-formed and its records unchanged,
	// also sent in chunks.
	for _, chunk := range []int{0, 65536} {
		s.answer(map[string]interface{}{"path": "pad", "padTo": 2 << 20, "chunkSize": chunk,
			"generate": map[string]interface{}{"kind": "segmentRanges", "count": 2}})
		resp, b, err := s.get("pad", "admin", "default")
		if err != nil || len(b) != 2<<20 {
			t.Fatalf("chunk %d: %v, %d bytes", chunk, err, len(b))
		}
		if chunk > 0 && resp.ContentLength != -1 {
			t.Errorf("padded chunked reply has a length")
		}
		doc, err := parseDoc(b)
		if err != nil || len(readRecords("segmentRanges", doc)) != 2 {
			t.Fatalf("padded document: %v", err)
		}
	}
	// Padding too short for a comment is blanks.
	body := "<a/>"
	s.answer(map[string]interface{}{"path": "pad", "padTo": 10, "body": body})
	if _, b := s.mustGet("pad"); len(b) != 10 || !strings.HasPrefix(b, body) {
		t.Errorf("short padding %q", b)
	} else if _, err := parseDoc([]byte(b)); err != nil {
		t.Errorf("short padding: %v", err)
	}
}

func TestHangAndDrop(t *testing.T) {
	s := startStub(t)
	type result struct {
		code int
		body string
		err  error
	}
	async := func(target string) chan result {
		ch := make(chan result, 1)
		go func() {
			resp, b, err := s.get(target, "admin", "default")
			if err != nil {
				ch <- result{err: err}
				return
			}
			ch <- result{resp.StatusCode, string(b), nil}
		}()
		return ch
	}
	waitLog := s.waitLog
	expectNothing := func(ch chan result) {
		select {
		case r := <-ch:
			t.Fatalf("hung request answered: %+v", r)
		case <-time.After(100 * time.Millisecond):
		}
	}
	expect := func(ch chan result, code int, body string) {
		t.Helper()
		select {
		case r := <-ch:
			if r.err != nil || r.code != code || r.body != body {
				t.Errorf("got %+v, want %d %q", r, code, body)
			}
		case <-time.After(5 * time.Second):
			t.Fatal("request still hanging")
		}
	}

	// Replacing a hang serves the held request with the new answer.
	s.answer(map[string]interface{}{"path": "h", "hang": true})
	ch := async("h")
	if e := waitLog(0, 1, false)[0]; e.Outcome != "hanging" && e.Outcome != "pending" {
		t.Fatalf("entry %+v", e)
	}
	expectNothing(ch)
	if e := s.logEntries("")[0]; e.Outcome != "hanging" || e.Status != 0 {
		t.Errorf("hanging entry %+v", e)
	}
	s.answer(map[string]interface{}{"path": "h", "body": "<late/>"})
	expect(ch, 200, "<late/>")
	if e := waitLog(0, 1, true)[0]; e.Outcome != "answered" || e.Status != 200 {
		t.Errorf("released entry %+v", e)
	}

	// Drop: no reply at all.
	s.answer(map[string]interface{}{"path": "d", "drop": true})
	if _, _, err := s.get("d", "admin", "default"); err == nil {
		t.Error("dropped request got a reply")
	}
	if e := s.waitLog(1, 1, true)[0]; e.Outcome != "dropped" || e.Status != 0 {
		t.Errorf("dropped entry %+v", e)
	}

	for _, bad := range []map[string]interface{}{
		{"path": "x", "hang": true, "drop": true},
		{"path": "x", "closeAfterBytes": -1},
	} {
		if code := s.ctlDo("POST", "/answers", bad, nil); code != 400 {
			t.Errorf("%v accepted: %d", bad, code)
		}
	}
}

func TestRequestLog(t *testing.T) {
	s := startStub(t)
	s.answer(map[string]interface{}{"path": "*", "body": "<ok/>"})
	before := time.Now()
	s.mustGet("api/2.0/vdn/virtualwires?pagesize=100&startindex=0")
	s.get("api/2.0/vdn/scopes", "intruder", "x")
	req, _ := http.NewRequest("POST", s.url+"/api/2.0/services/post", strings.NewReader("data"))
	req.SetBasicAuth("admin", "default")
	if resp, err := client.Do(req); err == nil {
		resp.Body.Close()
	}
	log := s.logEntries("")
	if len(log) != 3 {
		t.Fatalf("%d entries", len(log))
	}
	e := log[0]
	if e.Seq != 1 || e.Method != "GET" || e.URI != "/api/2.0/vdn/virtualwires?pagesize=100&startindex=0" ||
		e.Endpoint != "api/2.0/vdn/virtualwires?pagesize=100&startindex=0" || e.Path != "/api/2.0/vdn/virtualwires" ||
		e.Query != "pagesize=100&startindex=0" || e.User != "admin" || e.Status != 200 || e.Outcome != "answered" || e.BytesSent != 5 {
		t.Errorf("first entry %+v", e)
	}
	if log[1].User != "intruder" || log[1].Status != 401 || log[2].Method != "POST" || log[2].Seq != 3 {
		t.Errorf("entries %+v %+v", log[1], log[2])
	}
	for i, e := range log {
		ts, err := time.Parse(time.RFC3339Nano, e.Time)
		if err != nil || ts.UnixNano() != e.UnixNano || ts.Before(before.Add(-time.Second)) || (i > 0 && e.UnixNano < log[i-1].UnixNano) {
			t.Errorf("entry %d time %q (%v)", i, e.Time, err)
		}
		if e.Headers["Authorization"] == nil && e.HasAuth {
			t.Errorf("entry %d lost its headers", i)
		}
	}
	// Clearing the log keeps the numbering.
	s.ctlDo("DELETE", "/log", nil, nil)
	s.mustGet("x")
	if got := s.logEntries(""); len(got) != 1 || got[0].Seq != 4 {
		t.Errorf("after clear %+v", got)
	}
}

func TestControlAPI(t *testing.T) {
	s := startStub(t)
	// Answers report what was generated.
	var out struct{ Answers []answerInfo }
	s.ctlDo("POST", "/answers", map[string]interface{}{"path": "v", "generate": map[string]interface{}{"kind": "segmentRanges", "count": 4, "removePercent": 50}}, &out)
	if a := out.Answers[0]; a.Key != "/v" || a.Records != 2 || fmt.Sprint(a.Removed) != "[segmentrange-1 segmentrange-3]" {
		t.Errorf("answer info %+v", a)
	}

	bad := []struct {
		method, path, body string
		code               int
	}{
		{"POST", "/answers", `{"path":"x","stauts":500}`, 400},
		{"POST", "/answers", `{"path":"x"} {"path":"y"}`, 400},
		{"POST", "/answers", `{"status":500}`, 400},
		{"POST", "/answers", `{"path":"x","status":99}`, 400},
		{"POST", "/answers", `{"path":"x","body":"a","generate":{"kind":"heartbeat"}}`, 400},
		{"POST", "/answers", `[{"path":"ok","body":"<a/>"},{"path":"x","generate":{"kind":"wires"}}]`, 400},
		{"POST", "/log", ``, 405},
		{"PUT", "/auth", `{"user":"a","pass":"b"}`, 400},
	}
	for _, c := range bad {
		var e ctlError
		if code := s.ctlDo(c.method, c.path, c.body, &e); code != c.code || e.Error == "" {
			t.Errorf("%s %s %s: %d %q, want %d", c.method, c.path, c.body, code, e.Error, c.code)
		}
	}
	// A refused batch installs nothing.
	if code, _ := s.mustGet("ok"); code != 404 {
		t.Errorf("part of a refused batch was installed")
	}
}
