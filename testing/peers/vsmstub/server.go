package main

// The vShield Manager side: basic authentication, the table of configured
// answers, the request log and the writing of each kind of answer.

import (
	"bytes"
	"context"
	"fmt"
	"io"
	"net/http"
	"strconv"
	"strings"
	"sync"
	"time"
)

// Auth is the account of the stub: a request must carry HTTP basic
// credentials equal to User/Password.
type Auth struct {
	User     string `json:"user"`
	Password string `json:"password"`
}

// AnswerConfig configures the reply to one request target. See README.md.
type AnswerConfig struct {
	Path string `json:"path"` // "api/2.0/vdn/scopes", "/api/...?a=1", or "*" for every request

	Status   int         `json:"status"`   // default 200 (302 with redirect)
	Body     *string     `json:"body"`     // literal body
	Generate *GenOptions `json:"generate"` // generated body
	Broken   string      `json:"broken"`   // truncate (to half), garbage, html, json, empty, binary, mismatch
	PadTo    int64       `json:"padTo"`    // pad the body with a trailing XML comment to this many bytes

	ChunkSize    int `json:"chunkSize"`    // > 0: chunked transfer, one chunk per this many bytes
	ChunkDelayMs int `json:"chunkDelayMs"` // pause after each chunk

	Redirect string `json:"redirect"` // Location; a path is made absolute on this server

	Hang            bool   `json:"hang"`            // accept, never answer until the answer is replaced
	CloseAfterBytes *int64 `json:"closeAfterBytes"` // send headers and this many body bytes, then close
	Drop            bool   `json:"drop"`            // close the connection without any answer

	Times  int  `json:"times"`  // use this answer for so many requests, then the next one; 0 = for ever
	Append bool `json:"append"` // queue behind the answers of this path instead of replacing them
}

// answer is a prepared AnswerConfig.
type answer struct {
	cfg       AnswerConfig
	key       string
	body      []byte
	padLen    int64
	gen       *GenResult
	remaining int
	release   chan struct{} // closed when the answer is cleared
	released  bool
}

func (a *answer) totalLen() int64 { return int64(len(a.body)) + a.padLen }

// LogEntry is one request as the stub received it.
type LogEntry struct {
	Seq       int                 `json:"seq"`
	Method    string              `json:"method"`
	URI       string              `json:"uri"`      // request target as sent, with the leading "/"
	Endpoint  string              `json:"endpoint"` // uri without its first "/": what followed the base URL
	Path      string              `json:"path"`
	Query     string              `json:"query"`
	User      string              `json:"user"`
	Password  string              `json:"password"`
	HasAuth   bool                `json:"hasAuth"`
	Time      string              `json:"time"` // RFC 3339 with nanoseconds, UTC
	UnixNano  int64               `json:"unixNano"`
	Headers   map[string][]string `json:"headers"`
	Match     string              `json:"match"`     // exact, path, default, none; auth when rejected before lookup
	AnswerKey string              `json:"answerKey"` // key of the answer used
	Status    int                 `json:"status"`    // 0 until a status line has gone out
	Outcome   string              `json:"outcome"`   // pending, hanging, stalled, answered, rejected, dropped, aborted
	BytesSent int64               `json:"bytesSent"`
}

// Stub is the state shared by the manager port and the control port.
type Stub struct {
	mu       sync.Mutex
	auth     Auth
	answers  map[string][]*answer
	retired  []*answer // used-up answers whose hung requests still wait
	log      []*LogEntry
	seq      int
	shutdown chan struct{}
	baseURL  string // scheme://127.0.0.1:port of the manager port
	shutOnce sync.Once
}

func NewStub(auth Auth) *Stub {
	return &Stub{
		auth:     auth,
		answers:  map[string][]*answer{},
		shutdown: make(chan struct{}),
	}
}

// Close releases every waiting request; they end without an answer.
func (s *Stub) Close() { s.shutOnce.Do(func() { close(s.shutdown) }) }

// normKey gives a configured path the leading "/" of a request target.
// "*" stays as it is.
func normKey(p string) string {
	if p == "*" || strings.HasPrefix(p, "/") {
		return p
	}
	return "/" + p
}

// prepare turns a configuration into an answer, generating its body.
func prepare(cfg AnswerConfig) (*answer, error) {
	if cfg.Path == "" {
		return nil, fmt.Errorf("path is required")
	}
	if cfg.Body != nil && cfg.Generate != nil {
		return nil, fmt.Errorf("give body or generate, not both")
	}
	if cfg.Status == 0 {
		cfg.Status = 200
		if cfg.Redirect != "" {
			cfg.Status = 302
		}
	}
	if cfg.Status < 200 || cfg.Status > 999 {
		return nil, fmt.Errorf("status must be within 200..999")
	}
	if cfg.ChunkSize < 0 || cfg.ChunkDelayMs < 0 || cfg.Times < 0 || cfg.PadTo < 0 {
		return nil, fmt.Errorf("chunkSize, chunkDelayMs, times and padTo must not be negative")
	}
	if cfg.CloseAfterBytes != nil && *cfg.CloseAfterBytes < 0 {
		return nil, fmt.Errorf("closeAfterBytes must not be negative")
	}
	if cfg.Drop && cfg.Hang {
		return nil, fmt.Errorf("hang and drop exclude each other")
	}
	a := &answer{cfg: cfg, key: normKey(cfg.Path), remaining: cfg.Times, release: make(chan struct{})}
	if cfg.Body != nil {
		a.body = []byte(*cfg.Body)
	}
	if cfg.Generate != nil {
		g, err := Generate(*cfg.Generate)
		if err != nil {
			return nil, err
		}
		a.gen = g
		a.body = g.XML
	}
	switch cfg.Broken {
	case "":
	case "truncate":
		if len(a.body) < 2 {
			return nil, fmt.Errorf("broken=truncate needs a body or generate of at least 2 bytes")
		}
		a.body = a.body[:len(a.body)/2]
	default:
		b, ok := brokenBodies[cfg.Broken]
		if !ok {
			return nil, fmt.Errorf("unknown broken kind %q", cfg.Broken)
		}
		a.body = b
	}
	if cfg.PadTo > int64(len(a.body)) {
		a.padLen = cfg.PadTo - int64(len(a.body))
	}
	return a, nil
}

// brokenBodies are replies that pugixml's default parse rejects.
var brokenBodies = map[string][]byte{
	"garbage":  []byte("this is not XML at all <<< >>> &&&\n"),
	"html":     []byte("<html><head><title>502 Bad Gateway</title></head><body><h1>Bad Gateway</h1><hr><br></body></html>\n"),
	"json":     []byte("{\"errorCode\": 500, \"details\": \"internal error\"}\n"),
	"empty":    {},
	"binary":   binaryBody(),
	"mismatch": []byte("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<virtualWires><dataPage><pagingInfo></dataPage></virtualWires>\n"),
}

func binaryBody() []byte {
	b := []byte("\x89PNG\r\n\x1a\n")
	for i := 0; i < 256; i++ {
		b = append(b, byte(i))
	}
	return b
}

// SetAnswers installs answers. Without append, an answer replaces all
// answers of its path; hung requests of replaced answers are released and
// served again with the new table.
func (s *Stub) SetAnswers(list []*answer) {
	s.mu.Lock()
	defer s.mu.Unlock()
	for _, a := range list {
		if !a.cfg.Append {
			s.clearKeyLocked(a.key)
		}
		s.answers[a.key] = append(s.answers[a.key], a)
	}
}

func (a *answer) releaseLocked() {
	if !a.released {
		a.released = true
		close(a.release)
	}
}

func (s *Stub) clearKeyLocked(key string) {
	for _, a := range s.answers[key] {
		a.releaseLocked()
	}
	delete(s.answers, key)
	kept := s.retired[:0]
	for _, a := range s.retired {
		if a.key == key {
			a.releaseLocked()
		} else {
			kept = append(kept, a)
		}
	}
	s.retired = kept
}

func (s *Stub) SetAuth(a Auth) {
	s.mu.Lock()
	s.auth = a
	s.mu.Unlock()
}

// lookup finds the answer of a request target: the exact target first,
// then its path without the query, then "*". An answer with a count is
// used up by this call.
func (s *Stub) lookup(uri string) (*answer, string) {
	path := uri
	if i := strings.IndexByte(uri, '?'); i >= 0 {
		path = uri[:i]
	}
	s.mu.Lock()
	defer s.mu.Unlock()
	for _, c := range []struct{ key, match string }{{uri, "exact"}, {path, "path"}, {"*", "default"}} {
		if c.match == "path" && path == uri {
			continue
		}
		q := s.answers[c.key]
		if len(q) == 0 {
			continue
		}
		a := q[0]
		if a.remaining > 0 {
			a.remaining--
			if a.remaining == 0 {
				if len(q) == 1 {
					delete(s.answers, c.key)
				} else {
					s.answers[c.key] = q[1:]
				}
				if !a.released {
					s.retired = append(s.retired, a)
				}
			}
		}
		return a, c.match
	}
	return nil, "none"
}

type answerInfo struct {
	Key       string   `json:"key"`
	Bytes     int64    `json:"bytes"`
	Remaining int      `json:"remaining"`
	Status    int      `json:"status"`
	Records   int      `json:"records"`
	Changed   []string `json:"changedIds,omitempty"`
	Removed   []string `json:"removedIds,omitempty"`
	Added     []string `json:"addedIds,omitempty"`
}

func (a *answer) info() answerInfo {
	i := answerInfo{Key: a.key, Bytes: a.totalLen(), Remaining: a.remaining, Status: a.cfg.Status}
	if a.gen != nil {
		i.Records, i.Changed, i.Removed, i.Added = a.gen.Records, a.gen.Changed, a.gen.Removed, a.gen.Added
	}
	return i
}

// Log returns copies of the entries with a sequence number above since.
func (s *Stub) Log(since int) []LogEntry {
	s.mu.Lock()
	defer s.mu.Unlock()
	return s.logLocked(since)
}

func (s *Stub) logLocked(since int) []LogEntry {
	out := []LogEntry{}
	for _, e := range s.log {
		if e.Seq > since {
			out = append(out, *e)
		}
	}
	return out
}

func (s *Stub) ClearLog() {
	s.mu.Lock()
	s.log = nil
	s.mu.Unlock()
}

func (s *Stub) update(e *LogEntry, f func(e *LogEntry)) {
	s.mu.Lock()
	f(e)
	s.mu.Unlock()
}

// ServeHTTP answers a request on the manager port.
func (s *Stub) ServeHTTP(w http.ResponseWriter, r *http.Request) {
	now := time.Now()
	uri := r.RequestURI
	e := &LogEntry{
		Method:   r.Method,
		URI:      uri,
		Endpoint: strings.TrimPrefix(uri, "/"),
		Path:     uri,
		Time:     now.UTC().Format(time.RFC3339Nano),
		UnixNano: now.UnixNano(),
		Headers:  r.Header.Clone(),
		Outcome:  "pending",
	}
	if i := strings.IndexByte(uri, '?'); i >= 0 {
		e.Path, e.Query = uri[:i], uri[i+1:]
	}
	e.User, e.Password, e.HasAuth = r.BasicAuth()
	s.mu.Lock()
	s.seq++
	e.Seq = s.seq
	s.log = append(s.log, e)
	auth := s.auth
	s.mu.Unlock()

	// An abort (http.ErrAbortHandler) passes through here on its way out.
	defer func() {
		if e.Outcome == "pending" || e.Outcome == "hanging" || e.Outcome == "stalled" {
			s.update(e, func(e *LogEntry) { e.Outcome = "aborted" })
		}
	}()

	if code := checkAuth(auth, e); code != 0 {
		w.Header().Set("WWW-Authenticate", `Basic realm="vShield Manager"`)
		w.Header().Set("Content-Type", "text/plain; charset=utf-8")
		w.WriteHeader(code)
		n, _ := io.WriteString(w, http.StatusText(code)+"\n")
		s.update(e, func(e *LogEntry) {
			e.Match, e.Status, e.Outcome, e.BytesSent = "auth", code, "rejected", int64(n)
		})
		return
	}

	for {
		a, match := s.lookup(uri)
		key := ""
		if a != nil {
			key = a.key
		}
		s.update(e, func(e *LogEntry) { e.Match, e.AnswerKey = match, key })
		if a == nil {
			w.Header().Set("Content-Type", "text/plain; charset=utf-8")
			w.WriteHeader(http.StatusNotFound)
			n, _ := io.WriteString(w, "vsmstub: no answer configured for "+uri+"\n")
			s.update(e, func(e *LogEntry) { e.Status, e.Outcome, e.BytesSent = 404, "answered", int64(n) })
			return
		}
		if a.cfg.Drop {
			s.update(e, func(e *LogEntry) { e.Outcome = "dropped" })
			drop(w)
			return
		}
		if a.cfg.Hang {
			s.update(e, func(e *LogEntry) { e.Outcome = "hanging" })
			if !s.wait(r.Context(), a) {
				panic(http.ErrAbortHandler)
			}
			// Cleared: serve the request with whatever is configured now.
			s.update(e, func(e *LogEntry) { e.Outcome = "pending" })
			continue
		}
		s.write(w, r, e, a)
		return
	}
}

func checkAuth(a Auth, e *LogEntry) int {
	if e.HasAuth && e.User == a.User && e.Password == a.Password {
		return 0
	}
	return http.StatusUnauthorized
}

// wait blocks until the answer is cleared (true), or the client goes or
// the stub stops (false).
func (s *Stub) wait(ctx context.Context, a *answer) bool {
	select {
	case <-a.release:
		return true
	case <-ctx.Done():
	case <-s.shutdown:
	}
	return false
}

func (s *Stub) sleep(ctx context.Context, d time.Duration) bool {
	t := time.NewTimer(d)
	defer t.Stop()
	select {
	case <-t.C:
		return true
	case <-ctx.Done():
	case <-s.shutdown:
	}
	return false
}

// drop closes the connection without writing anything.
func drop(w http.ResponseWriter) {
	if hj, ok := w.(http.Hijacker); ok {
		if c, _, err := hj.Hijack(); err == nil {
			c.Close()
			return
		}
	}
	panic(http.ErrAbortHandler)
}

func (s *Stub) location(loc string) string {
	if strings.HasPrefix(loc, "http://") || strings.HasPrefix(loc, "https://") {
		return loc
	}
	return s.baseURL + normKey(loc)
}

func (s *Stub) write(w http.ResponseWriter, r *http.Request, e *LogEntry, a *answer) {
	sp := &a.cfg
	h := w.Header()
	h.Set("Content-Type", "application/xml")
	if sp.Redirect != "" {
		h.Set("Location", s.location(sp.Redirect))
	}
	chunked := sp.ChunkSize > 0
	if !chunked {
		h.Set("Content-Length", strconv.FormatInt(a.totalLen(), 10))
	}
	flusher, _ := w.(http.Flusher)
	w.WriteHeader(sp.Status)
	s.update(e, func(e *LogEntry) { e.Status = sp.Status })
	if chunked && flusher != nil {
		// Headers go out at once, so even an empty body is sent chunked.
		flusher.Flush()
	}
	body := io.MultiReader(bytes.NewReader(a.body), &padReader{n: a.padLen})
	var sent int64
	count := func(n int64) {
		sent += n
		s.update(e, func(e *LogEntry) { e.BytesSent = sent })
	}
	limit := a.totalLen()
	if sp.CloseAfterBytes != nil && *sp.CloseAfterBytes < limit {
		limit = *sp.CloseAfterBytes
	}
	piece := sp.ChunkSize
	if piece <= 0 {
		piece = 256 << 10
	}
	buf := make([]byte, piece)
	for sent < limit {
		want := int64(piece)
		if limit-sent < want {
			want = limit - sent
		}
		n, _ := io.ReadFull(body, buf[:want])
		if n == 0 {
			break
		}
		if _, err := w.Write(buf[:n]); err != nil {
			panic(http.ErrAbortHandler)
		}
		count(int64(n))
		if chunked {
			if flusher != nil {
				flusher.Flush()
			}
			if sp.ChunkDelayMs > 0 && sent < limit &&
				!s.sleep(r.Context(), time.Duration(sp.ChunkDelayMs)*time.Millisecond) {
				panic(http.ErrAbortHandler)
			}
		}
	}
	if sp.CloseAfterBytes != nil {
		if flusher != nil {
			flusher.Flush()
		}
		s.update(e, func(e *LogEntry) { e.Outcome = "aborted" })
		panic(http.ErrAbortHandler)
	}
	s.update(e, func(e *LogEntry) { e.Outcome = "answered" })
}

// padReader yields n bytes of padding: an XML comment after the document
// element, or blanks when there is no room for a comment.
type padReader struct {
	n, off int64
}

const padLine = "vsmstub padding ................................................\n"

func (p *padReader) Read(b []byte) (int, error) {
	if p.off >= p.n {
		return 0, io.EOF
	}
	i := 0
	for i < len(b) && p.off < p.n {
		b[i] = p.byteAt(p.off)
		i++
		p.off++
	}
	return i, nil
}

func (p *padReader) byteAt(o int64) byte {
	if p.n < 9 {
		return ' '
	}
	switch {
	case o == 0:
		return '\n'
	case o <= 4:
		return "<!--"[o-1]
	case o >= p.n-4:
		return "-->\n"[o-(p.n-4)]
	}
	return padLine[(o-5)%int64(len(padLine))]
}
