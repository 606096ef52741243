package main

import (
	"bytes"
	"fmt"
	"net/http"
	"strconv"
	"time"
)

// replyOf answers a call with a reply of the fault's own: true if it did.
func (s *Simulator) replyOf(w http.ResponseWriter, call *Call, rule *FaultRule) bool {
	switch rule.Kind {
	case faultWrongShape:
		s.calls.finish(call, "wrongShape", "")
		s.send(w, http.StatusOK, soapEnvelope(`<UnexpectedResponse xmlns="urn:vim25"><returnval><unknownChild>`+
			`<deeper>1</deeper></unknownChild></returnval></UnexpectedResponse>`))
	case faultReplace:
		s.calls.finish(call, "replaced", "")
		s.send(w, http.StatusOK, soapEnvelope(rule.Body))
	case faultStatus:
		s.calls.finish(call, "status", "")
		text := http.StatusText(rule.Status)
		w.Header().Set("Content-Type", "text/html")
		w.WriteHeader(rule.Status)
		_, _ = fmt.Fprintf(w, "<html><head><title>%d %s</title></head><body><h1>%s</h1></body></html>", rule.Status, text, text)
	default:
		return false
	}
	return true
}

func soapEnvelope(body string) []byte {
	return []byte(`<?xml version="1.0" encoding="UTF-8"?>` +
		`<soapenv:Envelope xmlns:soapenv="http://schemas.xmlsoap.org/soap/envelope/" ` +
		`xmlns:xsd="http://www.w3.org/2001/XMLSchema" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">` +
		`<soapenv:Body>` + body + `</soapenv:Body></soapenv:Envelope>`)
}

// deliver sends the real reply, taken in rec, spoilt as the rule says.
func (s *Simulator) deliver(w http.ResponseWriter, rec *recorder, rule *FaultRule) {
	body := rec.body.Bytes()
	for k, v := range rec.header {
		w.Header()[k] = v
	}
	half := len(body) / 2
	switch rule.Kind {
	case faultDropMid:
		conn, raw := hijack(w)
		if conn == nil {
			return
		}
		_, _ = fmt.Fprintf(conn, "HTTP/1.1 %d %s\r\nContent-Type: text/xml; charset=utf-8\r\nContent-Length: %d\r\n\r\n",
			rec.code, http.StatusText(rec.code), len(body))
		_, _ = conn.Write(body[:half])
		_ = raw.Close()
	case faultTruncate:
		w.Header().Set("Content-Length", strconv.Itoa(half))
		w.WriteHeader(rec.code)
		_, _ = w.Write(body[:half])
	case faultCorrupt:
		out := append([]byte(nil), body...)
		if at := bytes.Index(out[half:], []byte("</")); at >= 0 {
			copy(out[half+at:], "<#")
		} else {
			out = append(out, "</broken"...)
		}
		w.WriteHeader(rec.code)
		_, _ = w.Write(out)
	case faultTrickle:
		w.Header().Set("Content-Length", strconv.Itoa(len(body)))
		w.WriteHeader(rec.code)
		flusher, _ := w.(http.Flusher)
		tick := time.NewTicker(time.Second * time.Duration(rule.Chunk) / time.Duration(rule.BytesPerSecond))
		defer tick.Stop()
		for i := 0; i < len(body); i += rule.Chunk {
			end := i + rule.Chunk
			if end > len(body) {
				end = len(body)
			}
			if _, err := w.Write(body[i:end]); err != nil {
				return
			}
			if flusher != nil {
				flusher.Flush()
			}
			select {
			case <-tick.C:
			case <-s.stop:
				return
			}
		}
	case faultHuge:
		// Blanks after the opening of the body element: still XML, only long.
		at := bytes.Index(body, []byte("<soapenv:Body>"))
		if at < 0 {
			at = 0
		} else {
			at += len("<soapenv:Body>")
		}
		w.Header().Set("Content-Length", strconv.FormatInt(int64(len(body))+rule.Bytes, 10))
		w.WriteHeader(rec.code)
		if _, err := w.Write(body[:at]); err != nil {
			return
		}
		blanks := bytes.Repeat([]byte{' '}, 64<<10)
		for left := rule.Bytes; left > 0; left -= int64(len(blanks)) {
			n := int64(len(blanks))
			if left < n {
				n = left
			}
			if _, err := w.Write(blanks[:n]); err != nil {
				return
			}
		}
		_, _ = w.Write(body[at:])
	}
}
