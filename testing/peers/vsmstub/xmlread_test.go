package main

// A reader of replies built like the library's: a strict parse into a tree,
// then direct children only, first text node of an element, later id or
// objectId wins, names with runs of blanks collapsed.

import (
	"bytes"
	"encoding/xml"
	"errors"
	"fmt"
	"io"
	"strconv"
	"strings"
)

type xnode struct {
	name    string
	text    string // first non-blank text or CDATA node, as pugixml's child_value
	hasText bool
	kids    []*xnode
}

// parseDoc checks that b is one well-formed document with a document
// element and returns that element.
func parseDoc(b []byte) (*xnode, error) {
	d := xml.NewDecoder(bytes.NewReader(b))
	d.Strict = true
	var root *xnode
	var stack []*xnode
	for {
		tok, err := d.Token()
		if err == io.EOF {
			break
		}
		if err != nil {
			return nil, err
		}
		switch t := tok.(type) {
		case xml.StartElement:
			n := &xnode{name: t.Name.Local}
			if len(stack) == 0 {
				if root != nil {
					return nil, errors.New("second document element")
				}
				root = n
			} else {
				p := stack[len(stack)-1]
				p.kids = append(p.kids, n)
			}
			stack = append(stack, n)
		case xml.EndElement:
			stack = stack[:len(stack)-1]
		case xml.CharData:
			if len(bytes.TrimSpace(t)) == 0 {
				continue
			}
			if len(stack) == 0 {
				return nil, fmt.Errorf("text outside the document element: %q", string(t))
			}
			if p := stack[len(stack)-1]; !p.hasText {
				p.text, p.hasText = string(t), true
			}
		}
	}
	if len(stack) != 0 {
		return nil, errors.New("unclosed elements at the end")
	}
	if root == nil {
		return nil, errors.New("no document element")
	}
	return root, nil
}

var emptyNode = &xnode{}

func (n *xnode) child(name string) *xnode {
	for _, k := range n.kids {
		if k.name == name {
			return k
		}
	}
	return emptyNode
}

func (n *xnode) childValue(name string) string { return n.child(name).text }

func (n *xnode) children(name string) []*xnode {
	var out []*xnode
	for _, k := range n.kids {
		if k.name == name {
			out = append(out, k)
		}
	}
	return out
}

// record is what the library takes from one record element.
type record struct {
	Name, DisplayName, Description string
	Revision                       int64
	Attr                           map[string]string // own scalar attributes
	Set                            map[string]bool   // dvsPortGroup or cluster
}

func stripBlanks(s string) string {
	var words []string
	for _, w := range strings.Split(s, " ") {
		if w != "" {
			words = append(words, w)
		}
	}
	return strings.Join(words, " ")
}

func readCommon(n *xnode, extras map[string]string) record {
	r := record{Attr: map[string]string{}, Set: map[string]bool{}}
	for _, k := range n.kids {
		switch k.name {
		case "id", "objectId":
			r.Name = k.text
		case "name":
			r.DisplayName = stripBlanks(k.text)
		case "description":
			r.Description = k.text
		case "revision":
			r.Revision, _ = strconv.ParseInt(k.text, 10, 64)
		default:
			if _, ok := extras[k.name]; ok {
				extras[k.name] = k.text
			}
		}
	}
	for k, v := range extras {
		r.Attr[k] = v
	}
	return r
}

// readRecords walks a reply as the handler of its kind does.
func readRecords(kind string, doc *xnode) []record {
	var out []record
	switch kind {
	case "virtualWires":
		for _, w := range doc.child("dataPage").children("virtualWire") {
			r := readCommon(w, map[string]string{"vdnId": "", "multicastAddr": "", "vdnScopeId": ""})
			for _, c := range w.children("vdsContextWithBacking") {
				r.Set[c.childValue("backingValue")] = true
			}
			out = append(out, r)
		}
	case "vdnScopes":
		for _, s := range doc.children("vdnScope") {
			r := readCommon(s, nil)
			for _, c := range s.child("clusters").children("cluster") {
				r.Set[c.child("cluster").childValue("objectId")] = true
			}
			out = append(out, r)
		}
	case "clusterMappings":
		for _, m := range doc.children("clusterMapping") {
			c := m.child("cluster")
			r := readCommon(c, nil)
			r.Attr["datacenter"] = c.child("scope").childValue("id")
			r.Attr["dvs"] = m.child("clusterMappingSpec").child("switch").childValue("objectId")
			out = append(out, r)
		}
	case "multicastRanges":
		for _, m := range doc.children("multicastRange") {
			out = append(out, readCommon(m, map[string]string{"begin": "", "end": ""}))
		}
	case "segmentRanges":
		for _, m := range doc.children("segmentRange") {
			out = append(out, readCommon(m, map[string]string{"begin": "", "end": ""}))
		}
	}
	return out
}
