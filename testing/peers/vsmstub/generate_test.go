package main

import (
	"bytes"
	"reflect"
	"strings"
	"testing"
)

func genDoc(t *testing.T, s GenOptions) (*GenResult, []record, *xnode) {
	t.Helper()
	g, err := Generate(s)
	if err != nil {
		t.Fatalf("Generate(%+v): %v", s, err)
	}
	doc, err := parseDoc(g.XML)
	if err != nil {
		t.Fatalf("%s: not well-formed: %v\n%.400s", s.Kind, err, g.XML)
	}
	if want := genKinds[s.Kind].root; doc.name != want {
		t.Fatalf("document element %q, want %q", doc.name, want)
	}
	return g, readRecords(s.Kind, doc), doc
}

func byName(rs []record) map[string]record {
	m := map[string]record{}
	for _, r := range rs {
		m[r.Name] = r
	}
	return m
}

func intp(v int) *int { return &v }

// What the library reads from the first two records of each kind. The
// records carry nested objectId, name and revision elements; they must not
// leak into the records.
func TestGeneratedRecordsReadAsExpected(t *testing.T) {
	set := func(keys ...string) map[string]bool {
		m := map[string]bool{}
		for _, k := range keys {
			m[k] = true
		}
		return m
	}
	cases := []struct {
		cfg  GenOptions
		want []record
	}{
		{GenOptions{Kind: "virtualWires", Count: 2, PortGroups: intp(2), Scope: "vdnscope-7"}, []record{
			{"virtualwire-1", "vw-1", "Generated virtualWire 1", 1,
				map[string]string{"vdnId": "5000", "multicastAddr": "239.0.0.1", "vdnScopeId": "vdnscope-7"},
				set("dvportgroup-1000", "dvportgroup-1001")},
			{"virtualwire-2", "vw-2", "Generated virtualWire 2", 1,
				map[string]string{"vdnId": "5001", "multicastAddr": "239.0.0.2", "vdnScopeId": "vdnscope-7"},
				set("dvportgroup-1002", "dvportgroup-1003")},
		}},
		{GenOptions{Kind: "vdnScopes", Count: 2, Revision: 4}, []record{
			{"vdnscope-1", "scope-1", "Generated vdnScope 1", 4, map[string]string{}, set("domain-c101", "domain-c102")},
			{"vdnscope-2", "scope-2", "Generated vdnScope 2", 4, map[string]string{}, set("domain-c103", "domain-c104")},
		}},
		{GenOptions{Kind: "clusterMappings", Count: 2, Datacenter: "datacenter-9", Dvs: "dvs-5"}, []record{
			{"domain-c101", "Cluster-101", "Generated clusterMapping 101", 1,
				map[string]string{"datacenter": "datacenter-9", "dvs": "dvs-5"}, set()},
			{"domain-c102", "Cluster-102", "Generated clusterMapping 102", 1,
				map[string]string{"datacenter": "datacenter-9", "dvs": "dvs-5"}, set()},
		}},
		{GenOptions{Kind: "multicastRanges", Count: 2}, []record{
			{"multicastrange-1", "mcast-1", "Generated multicastRange 1", 1,
				map[string]string{"begin": "239.0.0.0", "end": "239.0.255.255"}, set()},
			{"multicastrange-2", "mcast-2", "Generated multicastRange 2", 1,
				map[string]string{"begin": "239.1.0.0", "end": "239.1.255.255"}, set()},
		}},
		{GenOptions{Kind: "segmentRanges", Count: 2}, []record{
			{"segmentrange-1", "vni-1", "Generated segmentRange 1", 1,
				map[string]string{"begin": "5000", "end": "5999"}, set()},
			{"segmentrange-2", "vni-2", "Generated segmentRange 2", 1,
				map[string]string{"begin": "6000", "end": "6999"}, set()},
		}},
	}
	for _, c := range cases {
		t.Run(c.cfg.Kind, func(t *testing.T) {
			g, got, _ := genDoc(t, c.cfg)
			if !reflect.DeepEqual(got, c.want) {
				t.Errorf("records\n got %+v\nwant %+v", got, c.want)
			}
			if g.Records != len(c.want) {
				t.Errorf("Records = %d, want %d", g.Records, len(c.want))
			}
		})
	}
}

func TestVirtualWirePagingInfo(t *testing.T) {
	_, recs, doc := genDoc(t, GenOptions{Kind: "virtualWires", Count: 50, StartIndex: 100, TotalCount: 1000, PageSize: 100})
	pi := doc.child("dataPage").child("pagingInfo")
	for k, want := range map[string]string{"pageSize": "100", "startIndex": "100", "totalCount": "1000"} {
		if got := pi.childValue(k); got != want {
			t.Errorf("pagingInfo %s = %q, want %q", k, got, want)
		}
	}
	if len(recs) != 50 || recs[0].Name != "virtualwire-101" || recs[49].Name != "virtualwire-150" {
		t.Fatalf("page holds %d records from %q to %q", len(recs), recs[0].Name, recs[len(recs)-1].Name)
	}
	if recs[0].Attr["vdnId"] != "5100" {
		t.Errorf("vdnId of index 100 = %s, want 5100", recs[0].Attr["vdnId"])
	}
}

func TestChangePercentOfTenThousandWires(t *testing.T) {
	base := GenOptions{Kind: "virtualWires", Count: 10000, Revision: 3}
	b0, before, _ := genDoc(t, base)
	if len(before) != 10000 || b0.Records != 10000 {
		t.Fatalf("%d records", len(before))
	}
	again, _ := Generate(base)
	if !bytes.Equal(b0.XML, again.XML) {
		t.Fatal("two generations with the same options differ")
	}

	ch := base
	ch.ChangePercent = 1
	g1, after, _ := genDoc(t, ch)
	if len(g1.Changed) != 100 || len(after) != 10000 {
		t.Fatalf("changed %d of %d, want 100 of 10000", len(g1.Changed), len(after))
	}
	changed := map[string]bool{}
	for _, id := range g1.Changed {
		changed[id] = true
	}
	old := byName(before)
	nChanged := 0
	for _, r := range after {
		o := old[r.Name]
		if !changed[r.Name] {
			if !reflect.DeepEqual(r, o) {
				t.Fatalf("%s not reported as changed but differs: %+v vs %+v", r.Name, r, o)
			}
			continue
		}
		nChanged++
		if r.Revision != 4 || r.DisplayName != o.DisplayName+" g1" {
			t.Errorf("%s: revision %d name %q, want 4 and %q", r.Name, r.Revision, r.DisplayName, o.DisplayName+" g1")
		}
		if !reflect.DeepEqual(r.Attr, o.Attr) || !reflect.DeepEqual(r.Set, o.Set) {
			t.Errorf("%s: fields other than the name changed", r.Name)
		}
	}
	if nChanged != 100 {
		t.Errorf("%d changed records found in the document, want 100", nChanged)
	}
	// Spread over the list, not bunched at one end.
	if g1.Changed[0] == "virtualwire-1" || g1.Changed[99] != "virtualwire-10000" || g1.Changed[1] != "virtualwire-200" {
		t.Errorf("changed ids start %v ... end %s", g1.Changed[:3], g1.Changed[99])
	}
	// Another generation changes the same records again, to new values.
	// Selection follows the global index, so a page of one record at
	// index 99 holds the same change.
	ch.Generation = 2
	ch.StartIndex, ch.Count = 99, 1
	g2, after2, _ := genDoc(t, ch)
	if !reflect.DeepEqual(g2.Changed, g1.Changed[:1]) {
		t.Errorf("generation 2 page changed %v, want %v", g2.Changed, g1.Changed[:1])
	}
	if r := after2[0]; r.Revision != 5 || !strings.HasSuffix(r.DisplayName, " g2") {
		t.Errorf("generation 2: %+v", r)
	}
}

func TestChangeFieldsAndRevisionBump(t *testing.T) {
	cases := []struct {
		kind, field string
		check       func(o, n record) bool
	}{
		{"virtualWires", "description", func(o, n record) bool { return n.Description == o.Description+" (generation 1)" }},
		{"virtualWires", "vni", func(o, n record) bool { return n.Attr["vdnId"] != o.Attr["vdnId"] }},
		{"virtualWires", "multicastAddr", func(o, n record) bool { return n.Attr["multicastAddr"] != o.Attr["multicastAddr"] }},
		{"virtualWires", "scope", func(o, n record) bool { return n.Attr["vdnScopeId"] == o.Attr["vdnScopeId"]+"-g1" }},
		{"virtualWires", "portGroup", func(o, n record) bool { return len(n.Set) == len(o.Set)+1 }},
		{"virtualWires", "none", func(o, n record) bool { return n.DisplayName == o.DisplayName }},
		{"vdnScopes", "cluster", func(o, n record) bool { return len(n.Set) == len(o.Set) && !reflect.DeepEqual(n.Set, o.Set) }},
		{"clusterMappings", "datacenter", func(o, n record) bool { return n.Attr["datacenter"] == o.Attr["datacenter"]+"-g1" }},
		{"clusterMappings", "dvs", func(o, n record) bool { return n.Attr["dvs"] == o.Attr["dvs"]+"-g1" }},
		{"multicastRanges", "begin", func(o, n record) bool { return n.Attr["begin"] == "239.0.0.1" }},
		{"multicastRanges", "end", func(o, n record) bool { return n.Attr["end"] == "239.0.255.254" }},
		{"segmentRanges", "begin", func(o, n record) bool { return n.Attr["begin"] == "5001" }},
		{"segmentRanges", "end", func(o, n record) bool { return n.Attr["end"] == "5998" }},
	}
	for _, c := range cases {
		t.Run(c.kind+"/"+c.field, func(t *testing.T) {
			_, before, _ := genDoc(t, GenOptions{Kind: c.kind, Count: 1})
			g, after, _ := genDoc(t, GenOptions{Kind: c.kind, Count: 1, ChangePercent: 100, ChangeField: c.field, RevisionBump: intp(0)})
			if len(g.Changed) != 1 {
				t.Fatalf("changed %v", g.Changed)
			}
			if after[0].Revision != before[0].Revision {
				t.Errorf("revisionBump 0 still moved the revision")
			}
			if !c.check(before[0], after[0]) {
				t.Errorf("field %s: before %+v after %+v", c.field, before[0], after[0])
			}
		})
	}
	if _, err := Generate(GenOptions{Kind: "segmentRanges", ChangeField: "vni"}); err == nil {
		t.Error("a change field of another kind was accepted")
	}
}

func TestRemoveAndAdd(t *testing.T) {
	g, recs, _ := genDoc(t, GenOptions{Kind: "vdnScopes", Count: 100, RemovePercent: 10, ChangePercent: 10, AddCount: 3})
	if len(g.Removed) != 10 || len(g.Changed) != 10 || len(g.Added) != 3 || len(recs) != 93 || g.Records != 93 {
		t.Fatalf("removed %d changed %d added %d records %d", len(g.Removed), len(g.Changed), len(g.Added), len(recs))
	}
	m := byName(recs)
	for _, id := range g.Removed {
		if _, ok := m[id]; ok {
			t.Errorf("removed %s is in the reply", id)
		}
	}
	for _, id := range g.Changed {
		if _, ok := m[id]; !ok {
			t.Errorf("changed %s is not in the reply", id)
		}
	}
	if !reflect.DeepEqual(g.Added, []string{"vdnscope-101", "vdnscope-102", "vdnscope-103"}) {
		t.Errorf("added %v", g.Added)
	}
	// Clusters of added records don't clash with those of the first 100.
	seen := map[string]string{}
	for _, r := range recs {
		for c := range r.Set {
			if o, ok := seen[c]; ok {
				t.Fatalf("cluster %s in %s and %s", c, o, r.Name)
			}
			seen[c] = r.Name
		}
	}
}

// The evenly spread selection picks exactly floor(n*p) of the first n.
func TestSelectionCounts(t *testing.T) {
	for _, p := range []float64{0.1, 1, 3.3, 12.5, 33.3, 50, 99.9, 100} {
		ppm := percentToPPM(p)
		for _, phase := range []int64{0, ppmScale / 2} {
			n := 0
			for i := 0; i < 10000; i++ {
				if selected(i, ppm, phase) {
					n++
				}
			}
			want := int((10000*ppm + phase) / ppmScale)
			if n != want {
				t.Errorf("p=%v phase=%d: %d selected, want %d", p, phase, n, want)
			}
		}
		if p <= 50 {
			for i := 0; i < 10000; i++ {
				if selected(i, ppm, 0) && selected(i, ppm, ppmScale/2) {
					t.Fatalf("p=%v: index %d both changed and removed", p, i)
				}
			}
		}
	}
}

func TestHeartbeat(t *testing.T) {
	_, _, doc := genDoc(t, GenOptions{Kind: "heartbeat"})
	if v := doc.child("versionInfo").text; v != "5.5.4-3068850" {
		t.Errorf("versionInfo %q", v)
	}
}

func TestGeneratorRejectsBadOptions(t *testing.T) {
	bad := []GenOptions{
		{Kind: "virtualwires"},
		{Kind: ""},
		{Kind: "virtualWires", Count: -1},
		{Kind: "virtualWires", ChangePercent: 101},
		{Kind: "virtualWires", RemovePercent: -1},
		{Kind: "virtualWires", Count: maxGenRecords + 1},
	}
	for _, s := range bad {
		if _, err := Generate(s); err == nil {
			t.Errorf("accepted %+v", s)
		}
	}
}
