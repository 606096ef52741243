package main

// The control port: plain HTTP with JSON bodies, no authentication, for the
// test that drives the stub. Endpoints are listed in README.md.

import (
	"bytes"
	"encoding/json"
	"fmt"
	"io"
	"net/http"
)

func (s *Stub) controlHandler() http.Handler {
	mux := http.NewServeMux()
	mux.HandleFunc("/health", s.ctlHealth)
	mux.HandleFunc("/answers", s.ctlAnswers)
	mux.HandleFunc("/log", s.ctlLog)
	mux.HandleFunc("/auth", s.ctlAuth)
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

// /answers: POST one answer object or an array of them.
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
	default:
		methodNotAllowed(w, r)
	}
}

// /log: GET the entries; DELETE clears.
func (s *Stub) ctlLog(w http.ResponseWriter, r *http.Request) {
	switch r.Method {
	case http.MethodGet:
		writeJSON(w, http.StatusOK, map[string]interface{}{"requests": s.Log(0)})
	case http.MethodDelete:
		s.ClearLog()
		writeJSON(w, http.StatusOK, map[string]interface{}{"ok": true})
	default:
		methodNotAllowed(w, r)
	}
}

// /auth: PUT/POST replaces the account.
func (s *Stub) ctlAuth(w http.ResponseWriter, r *http.Request) {
	switch r.Method {
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
