package main

// The control port: plain HTTP with JSON bodies, no authentication, for the
// test that drives the stub. Endpoints are listed in README.md.

import (
	"bytes"
	"encoding/json"
	"fmt"
	"io"
	"net/http"
	"strconv"
	"time"
)

func (s *Stub) controlHandler() http.Handler {
	mux := http.NewServeMux()
	mux.HandleFunc("/health", s.ctlHealth)
	mux.HandleFunc("/answers", s.ctlAnswers)
	mux.HandleFunc("/generate", s.ctlGenerate)
	mux.HandleFunc("/log", s.ctlLog)
	mux.HandleFunc("/log/wait", s.ctlLogWait)
	mux.HandleFunc("/auth", s.ctlAuth)
	mux.HandleFunc("/reset", s.ctlReset)
	return mux
}

type ctlError struct {
	Error string `json:"error"`
}

func writeJSON(w http.ResponseWriter, code int, v interface{}) {
	w.Header().Set("Content-Type", "application/json")
	w.WriteHeader(code)
	enc := json.NewEncoder(w)
	enc.SetEscapeHTML(false)
	enc.Encode(v)
}

func fail(w http.ResponseWriter, code int, format string, args ...interface{}) {
	writeJSON(w, code, ctlError{Error: fmt.Sprintf(format, args...)})
}

func methodNotAllowed(w http.ResponseWriter, r *http.Request) {
	fail(w, http.StatusMethodNotAllowed, "method %s not allowed on %s", r.Method, r.URL.Path)
}

// decode reads a JSON body strictly: unknown fields are errors, so that a
// misspelt option fails the test instead of being ignored.
func decode(r *http.Request, v interface{}) error {
	d := json.NewDecoder(r.Body)
	d.DisallowUnknownFields()
	if err := d.Decode(v); err != nil {
		return fmt.Errorf("bad JSON: %v", err)
	}
	if d.More() {
		return fmt.Errorf("bad JSON: trailing data")
	}
	return nil
}

func (s *Stub) ctlHealth(w http.ResponseWriter, r *http.Request) {
	writeJSON(w, http.StatusOK, map[string]interface{}{"ok": true, "url": s.baseURL})
}

// /answers: POST one answer object or an array of them; GET lists them;
// DELETE clears all, or those of ?path=.
func (s *Stub) ctlAnswers(w http.ResponseWriter, r *http.Request) {
	switch r.Method {
	case http.MethodPost, http.MethodPut:
		raw, err := io.ReadAll(r.Body)
		if err != nil {
			fail(w, http.StatusBadRequest, "%v", err)
			return
		}
		var cfgs []AnswerConfig
		trimmed := bytes.TrimLeft(raw, " \t\r\n")
		r.Body = io.NopCloser(bytes.NewReader(raw))
		if len(trimmed) > 0 && trimmed[0] == '[' {
			err = decode(r, &cfgs)
		} else {
			var one AnswerConfig
			err = decode(r, &one)
			cfgs = []AnswerConfig{one}
		}
		if err != nil {
			fail(w, http.StatusBadRequest, "%v", err)
			return
		}
		list := make([]*answer, 0, len(cfgs))
		for i, sp := range cfgs {
			a, err := prepare(sp)
			if err != nil {
				fail(w, http.StatusBadRequest, "answer %d (%s): %v", i, sp.Path, err)
				return
			}
			list = append(list, a)
		}
		s.SetAnswers(list)
		infos := make([]answerInfo, len(list))
		for i, a := range list {
			infos[i] = a.info()
		}
		writeJSON(w, http.StatusOK, map[string]interface{}{"answers": infos})
	case http.MethodGet:
		writeJSON(w, http.StatusOK, map[string]interface{}{"answers": s.ListAnswers()})
	case http.MethodDelete:
		s.ClearAnswers(r.URL.Query().Get("path"))
		writeJSON(w, http.StatusOK, map[string]interface{}{"ok": true})
	default:
		methodNotAllowed(w, r)
	}
}

// /generate: POST generator options; the reply is the XML document, with the
// summary in the headers X-Vsmstub-Records, -Changed, -Removed, -Added
// (counts). With ?summary=1 the reply is the JSON summary instead.
func (s *Stub) ctlGenerate(w http.ResponseWriter, r *http.Request) {
	if r.Method != http.MethodPost {
		methodNotAllowed(w, r)
		return
	}
	var cfg GenOptions
	if err := decode(r, &cfg); err != nil {
		fail(w, http.StatusBadRequest, "%v", err)
		return
	}
	g, err := Generate(cfg)
	if err != nil {
		fail(w, http.StatusBadRequest, "%v", err)
		return
	}
	if r.URL.Query().Get("summary") == "1" {
		writeJSON(w, http.StatusOK, map[string]interface{}{
			"bytes": len(g.XML), "records": g.Records,
			"changedIds": g.Changed, "removedIds": g.Removed, "addedIds": g.Added,
		})
		return
	}
	h := w.Header()
	h.Set("Content-Type", "application/xml")
	h.Set("Content-Length", strconv.Itoa(len(g.XML)))
	h.Set("X-Vsmstub-Records", strconv.Itoa(g.Records))
	h.Set("X-Vsmstub-Changed", strconv.Itoa(len(g.Changed)))
	h.Set("X-Vsmstub-Removed", strconv.Itoa(len(g.Removed)))
	h.Set("X-Vsmstub-Added", strconv.Itoa(len(g.Added)))
	w.WriteHeader(http.StatusOK)
	w.Write(g.XML)
}

func intParam(r *http.Request, name string, def int) (int, error) {
	v := r.URL.Query().Get(name)
	if v == "" {
		return def, nil
	}
	n, err := strconv.Atoi(v)
	if err != nil || n < 0 {
		return 0, fmt.Errorf("%s must be a non-negative integer", name)
	}
	return n, nil
}

// /log: GET the entries (?since=SEQ for those after SEQ); DELETE clears.
func (s *Stub) ctlLog(w http.ResponseWriter, r *http.Request) {
	switch r.Method {
	case http.MethodGet:
		since, err := intParam(r, "since", 0)
		if err != nil {
			fail(w, http.StatusBadRequest, "%v", err)
			return
		}
		writeJSON(w, http.StatusOK, map[string]interface{}{"requests": s.Log(since)})
	case http.MethodDelete:
		s.ClearLog()
		writeJSON(w, http.StatusOK, map[string]interface{}{"ok": true})
	default:
		methodNotAllowed(w, r)
	}
}

// /log/wait?count=N[&since=SEQ][&done=1][&timeoutMs=T]: waits until N
// entries after SEQ are logged (and, with done=1, finished). 200 when met,
// 408 with the entries so far when the time (default 5000 ms) runs out.
func (s *Stub) ctlLogWait(w http.ResponseWriter, r *http.Request) {
	if r.Method != http.MethodGet {
		methodNotAllowed(w, r)
		return
	}
	count, err1 := intParam(r, "count", 1)
	since, err2 := intParam(r, "since", 0)
	timeout, err3 := intParam(r, "timeoutMs", 5000)
	for _, err := range []error{err1, err2, err3} {
		if err != nil {
			fail(w, http.StatusBadRequest, "%v", err)
			return
		}
	}
	done := r.URL.Query().Get("done") == "1"
	entries, ok := s.WaitLog(since, count, done, time.Duration(timeout)*time.Millisecond)
	code := http.StatusOK
	if !ok {
		code = http.StatusRequestTimeout
	}
	writeJSON(w, code, map[string]interface{}{"requests": entries, "timedOut": !ok})
}

// /auth: GET the accounts; PUT/POST replaces them.
func (s *Stub) ctlAuth(w http.ResponseWriter, r *http.Request) {
	switch r.Method {
	case http.MethodGet:
		writeJSON(w, http.StatusOK, s.Auth())
	case http.MethodPut, http.MethodPost:
		var a Auth
		if err := decode(r, &a); err != nil {
			fail(w, http.StatusBadRequest, "%v", err)
			return
		}
		s.SetAuth(a)
		writeJSON(w, http.StatusOK, a)
	default:
		methodNotAllowed(w, r)
	}
}

// /reset: POST clears answers (releasing hung requests) and the log, and
// restores the accounts given at start.
func (s *Stub) ctlReset(w http.ResponseWriter, r *http.Request) {
	if r.Method != http.MethodPost {
		methodNotAllowed(w, r)
		return
	}
	s.Reset()
	writeJSON(w, http.StatusOK, map[string]interface{}{"ok": true})
}
