package main

// Generators for the XML replies of vShield Manager, in the shape that the
// vShield session of libHarbec reads:
//
//   heartbeat        <vsmGlobalInfo><versionInfo>TEXT</versionInfo>...</vsmGlobalInfo>
//   virtualWires     <virtualWires><dataPage><pagingInfo/><virtualWire/>*</dataPage></virtualWires>
//   vdnScopes        <vdnScopes><vdnScope/>*</vdnScopes>
//   clusterMappings  <clusterMappings><clusterMapping/>*</clusterMappings>
//   multicastRanges  <multicastRanges><multicastRange/>*</multicastRanges>
//   segmentRanges    <segmentRanges><segmentRange/>*</segmentRanges>
//
// Everything is a pure function of the GenOptions, so two calls with the
// same options give the same bytes, and a test can predict every value from
// a record's index. Record i (0-based, counted from startIndex) has the number i+1 in
// its ids and names.
//
// Records also carry the elements a real manager sends and the library
// must skip: nested objectId/name/revision inside switch, scope and type
// blocks, extendedAttributes, and so on. A reader that searches
// descendants instead of direct children trips over them.

import (
	"bytes"
	"encoding/binary"
	"fmt"
	"math"
	"net"
	"strconv"
	"strings"
)

// GenOptions asks for one generated document. Zero values mean the defaults
// given in the comments.
type GenOptions struct {
	Kind string `json:"kind"` // heartbeat, virtualWires, vdnScopes, clusterMappings, multicastRanges, segmentRanges

	Count      int `json:"count"`      // records in the reply; default 0 (an empty list)
	StartIndex int `json:"startIndex"` // index of the first record; ids follow the index
	TotalCount int `json:"totalCount"` // virtualWires pagingInfo totalCount; default startIndex+count
	PageSize   int `json:"pageSize"`   // virtualWires pagingInfo pageSize; default count

	Revision int `json:"revision"` // revision of every unchanged record; default 1

	// virtualWires: record i has vdnId 5000+i and multicastAddr 239.0.0.1+i
	Scope      string `json:"scope"`      // vdnScopeId; default vdnscope-1
	PortGroups *int   `json:"portGroups"` // vdsContextWithBacking per wire; default 1: wire i, group j -> dvportgroup-(1000 + i*portGroups + j)

	// vdnScopes
	Clusters *int `json:"clusters"` // clusters per scope; default 2: scope i, cluster j -> domain-c(101 + i*clusters + j)

	// clusterMappings (and the switch/scope blocks elsewhere)
	Datacenter string `json:"datacenter"` // scope id of a cluster; default datacenter-2
	Dvs        string `json:"dvs"`        // switch objectId; default dvs-21

	// multicastRanges: record i covers 65536 addresses from 239.0.0.0 on;
	// segmentRanges: 1000 numbers from 5000 on.

	// Deterministic changes, for poll-over-poll benchmarks.
	ChangePercent float64 `json:"changePercent"` // share of records changed, 0..100
	ChangeField   string  `json:"changeField"`   // field changed besides the revision; default name
	RevisionBump  *int    `json:"revisionBump"`  // a changed record's revision is revision + bump*generation; default 1
	Generation    int     `json:"generation"`    // default 1; changed values carry it, so generation 2 differs from 1
	RemovePercent float64 `json:"removePercent"` // share of records left out of the reply
	AddCount      int     `json:"addCount"`      // extra records after the last index (startIndex+count, or totalCount if larger)
}

// GenResult is a generated document with a summary of what is in it.
type GenResult struct {
	XML     []byte   `json:"-"`
	Records int      `json:"records"`
	Changed []string `json:"changedIds"`
	Removed []string `json:"removedIds"`
	Added   []string `json:"addedIds"`
}

const ppmScale = 1000000

// selected tells whether index i falls in a deterministic, evenly spread
// share of ppm parts per million. phase shifts the pattern: change and
// removal use phases half a period apart, so with shares up to 50 % they
// never pick the same record.
func selected(i int, ppm int64, phase int64) bool {
	if ppm <= 0 {
		return false
	}
	if ppm >= ppmScale {
		return true
	}
	a := (int64(i)*ppm + phase) / ppmScale
	b := (int64(i+1)*ppm + phase) / ppmScale
	return b > a
}

func percentToPPM(p float64) int64 {
	return int64(math.Round(p * 10000))
}

type genKind struct {
	root, idPrefix, namePrefix, idElement, record string
	idBase                                        int
	changeFields                                  []string
}

var genKinds = map[string]genKind{
	"heartbeat":       {root: "vsmGlobalInfo"},
	"virtualWires":    {root: "virtualWires", record: "virtualWire", idPrefix: "virtualwire-", namePrefix: "vw-", idElement: "objectId", idBase: 1, changeFields: []string{"name", "description", "vni", "multicastAddr", "scope", "portGroup", "none"}},
	"vdnScopes":       {root: "vdnScopes", record: "vdnScope", idPrefix: "vdnscope-", namePrefix: "scope-", idElement: "objectId", idBase: 1, changeFields: []string{"name", "description", "cluster", "none"}},
	"clusterMappings": {root: "clusterMappings", record: "clusterMapping", idPrefix: "domain-c", namePrefix: "Cluster-", idElement: "objectId", idBase: 101, changeFields: []string{"name", "description", "datacenter", "dvs", "none"}},
	"multicastRanges": {root: "multicastRanges", record: "multicastRange", idPrefix: "multicastrange-", namePrefix: "mcast-", idElement: "id", idBase: 1, changeFields: []string{"name", "description", "begin", "end", "none"}},
	"segmentRanges":   {root: "segmentRanges", record: "segmentRange", idPrefix: "segmentrange-", namePrefix: "vni-", idElement: "id", idBase: 1, changeFields: []string{"name", "description", "begin", "end", "none"}},
}

// maxGenRecords bounds one document (about 700 MB of virtual wires).
const maxGenRecords = 1000000

func intOr(p *int, d int) int {
	if p == nil {
		return d
	}
	return *p
}

// First numbers and addresses of the generated records.
const (
	vniBase     = 5000
	pgBase      = 1000
	clusterBase = 101
	mcastBase   = 239<<24 + 1 // 239.0.0.1
	rangeAddr   = 239 << 24   // 239.0.0.0
	rangeBase   = 5000
	version     = "5.5.4-3068850"
)

// gen holds generator options with their defaults filled in.
type gen struct {
	GenOptions
	k                    genKind
	portGroups, clusters int
	bump                 int
	rangeSize            int64
	changePPM, removePPM int64
}

func ipv4String(v uint32) string {
	var b [4]byte
	binary.BigEndian.PutUint32(b[:], v)
	return net.IP(b[:]).String()
}

func newGen(s GenOptions) (*gen, error) {
	k, ok := genKinds[s.Kind]
	if !ok {
		return nil, fmt.Errorf("unknown generator kind %q", s.Kind)
	}
	if s.Count < 0 || s.StartIndex < 0 || s.AddCount < 0 || s.TotalCount < 0 || s.PageSize < 0 {
		return nil, fmt.Errorf("count, startIndex, totalCount, pageSize and addCount must not be negative")
	}
	if s.Count+s.AddCount > maxGenRecords {
		return nil, fmt.Errorf("at most %d records per document", maxGenRecords)
	}
	for _, p := range []float64{s.ChangePercent, s.RemovePercent} {
		if p < 0 || p > 100 || math.IsNaN(p) {
			return nil, fmt.Errorf("percentages must be within 0..100")
		}
	}
	g := &gen{GenOptions: s, k: k}
	if g.Revision == 0 {
		g.Revision = 1
	}
	if g.Scope == "" {
		g.Scope = "vdnscope-1"
	}
	if g.Datacenter == "" {
		g.Datacenter = "datacenter-2"
	}
	if g.Dvs == "" {
		g.Dvs = "dvs-21"
	}
	if g.Generation == 0 {
		g.Generation = 1
	}
	if g.ChangeField == "" {
		g.ChangeField = "name"
	}
	if k.changeFields != nil {
		found := false
		for _, f := range k.changeFields {
			found = found || f == g.ChangeField
		}
		if !found {
			return nil, fmt.Errorf("changeField of %s must be one of %s", s.Kind, strings.Join(k.changeFields, ", "))
		}
	}
	g.portGroups = intOr(s.PortGroups, 1)
	g.clusters = intOr(s.Clusters, 2)
	g.bump = intOr(s.RevisionBump, 1)
	if g.portGroups < 0 || g.clusters < 0 {
		return nil, fmt.Errorf("portGroups and clusters must not be negative")
	}
	g.rangeSize = 1000
	if s.Kind == "multicastRanges" {
		g.rangeSize = 65536
	}
	g.changePPM = percentToPPM(s.ChangePercent)
	g.removePPM = percentToPPM(s.RemovePercent)
	return g, nil
}

// Generate builds the document that the options describe.
func Generate(s GenOptions) (*GenResult, error) {
	g, err := newGen(s)
	if err != nil {
		return nil, err
	}
	if s.Kind == "heartbeat" {
		return &GenResult{XML: g.heartbeat()}, nil
	}
	return g.document(), nil
}

// rec is the variable part of one record.
type rec struct {
	n       int // number in ids and names: idBase + index
	index   int
	changed bool
	rev     int
}

func (g *gen) document() *GenResult {
	res := &GenResult{Changed: []string{}, Removed: []string{}, Added: []string{}}
	var b bytes.Buffer
	b.Grow((g.Count + g.AddCount) * 900)
	b.WriteString("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n")
	open(&b, g.k.root)
	if g.Kind == "virtualWires" {
		open(&b, "dataPage")
		open(&b, "pagingInfo")
		pageSize := g.PageSize
		if pageSize == 0 {
			pageSize = g.Count
		}
		total := g.TotalCount
		if total == 0 {
			total = g.StartIndex + g.Count
		}
		elem(&b, "pageSize", strconv.Itoa(pageSize))
		elem(&b, "startIndex", strconv.Itoa(g.StartIndex))
		elem(&b, "totalCount", strconv.Itoa(total))
		elem(&b, "sortOrderAscending", "true")
		elem(&b, "sortBy", "objectId")
		closeTag(&b, "pagingInfo")
	}
	emit := func(r rec) {
		switch g.Kind {
		case "virtualWires":
			g.virtualWire(&b, r)
		case "vdnScopes":
			g.vdnScope(&b, r)
		case "clusterMappings":
			g.clusterMapping(&b, r)
		case "multicastRanges":
			g.multicastRange(&b, r)
		case "segmentRanges":
			g.segmentRange(&b, r)
		}
		res.Records++
	}
	for j := 0; j < g.Count; j++ {
		i := g.StartIndex + j
		r := rec{n: g.k.idBase + i, index: i, rev: g.Revision}
		if selected(i, g.removePPM, ppmScale/2) {
			res.Removed = append(res.Removed, g.id(r.n))
			continue
		}
		if selected(i, g.changePPM, 0) {
			r.changed = true
			r.rev = g.Revision + g.bump*g.Generation
			res.Changed = append(res.Changed, g.id(r.n))
		}
		emit(r)
	}
	first := g.StartIndex + g.Count
	if g.TotalCount > first {
		first = g.TotalCount
	}
	for j := 0; j < g.AddCount; j++ {
		i := first + j
		r := rec{n: g.k.idBase + i, index: i, rev: g.Revision}
		res.Added = append(res.Added, g.id(r.n))
		emit(r)
	}
	if g.Kind == "virtualWires" {
		closeTag(&b, "dataPage")
	}
	closeTag(&b, g.k.root)
	b.WriteByte('\n')
	res.XML = b.Bytes()
	return res
}

func (g *gen) id(n int) string { return g.k.idPrefix + strconv.Itoa(n) }

func (g *gen) names(r rec) (name, desc string) {
	name = g.k.namePrefix + strconv.Itoa(r.n)
	desc = "Generated " + g.k.record + " " + strconv.Itoa(r.n)
	if r.changed {
		switch g.ChangeField {
		case "name":
			name += " g" + strconv.Itoa(g.Generation)
		case "description":
			desc += " (generation " + strconv.Itoa(g.Generation) + ")"
		}
	}
	return name, desc
}

func (g *gen) common(b *bytes.Buffer, r rec, typeName string) {
	name, desc := g.names(r)
	elem(b, g.k.idElement, g.id(r.n))
	elem(b, "objectTypeName", typeName)
	elem(b, "vsmUuid", "4207B6A2-0F4C-9A3D-5C3E-0A1B2C3D4E5F")
	elem(b, "nodeId", "8d4f2a1e-3b5c-4d6e-9f70-112233445566")
	elem(b, "revision", strconv.Itoa(r.rev))
	open(b, "type")
	elem(b, "typeName", typeName)
	closeTag(b, "type")
	elem(b, "name", name)
	elem(b, "description", desc)
	b.WriteString("<clientHandle></clientHandle>")
	// Nested name/value pairs: a reader of direct children must skip them.
	open(b, "extendedAttributes")
	open(b, "extendedAttribute")
	elem(b, "name", "generatedBy")
	elem(b, "value", "vsmstub")
	closeTag(b, "extendedAttribute")
	closeTag(b, "extendedAttributes")
	elem(b, "isUniversal", "false")
	elem(b, "universalRevision", "0")
}

// switchBlock is the reference to a distributed switch, with its own
// objectId, name and revision that must not be taken for the record's.
func (g *gen) switchBlock(b *bytes.Buffer, dvs string) {
	open(b, "switch")
	elem(b, "objectId", dvs)
	elem(b, "objectTypeName", "VmwareDistributedVirtualSwitch")
	elem(b, "vsmUuid", "4207B6A2-0F4C-9A3D-5C3E-0A1B2C3D4E5F")
	elem(b, "revision", "99")
	open(b, "type")
	elem(b, "typeName", "VmwareDistributedVirtualSwitch")
	closeTag(b, "type")
	elem(b, "name", "DSwitch-"+dvs)
	open(b, "scope")
	elem(b, "id", g.Datacenter)
	elem(b, "objectTypeName", "Datacenter")
	elem(b, "name", "Datacenter")
	closeTag(b, "scope")
	b.WriteString("<clientHandle></clientHandle><extendedAttributes></extendedAttributes>")
	closeTag(b, "switch")
}

func (g *gen) virtualWire(b *bytes.Buffer, r rec) {
	open(b, "virtualWire")
	g.common(b, r, "VirtualWire")
	elem(b, "tenantId", "virtual wire tenant")
	scope := g.Scope
	vni := vniBase + r.index
	mcast := uint32(mcastBase) + uint32(r.index)
	extraPG := false
	if r.changed {
		switch g.ChangeField {
		case "scope":
			scope += "-g" + strconv.Itoa(g.Generation)
		case "vni":
			vni += 1000000 * g.Generation
		case "multicastAddr":
			mcast += uint32(g.Generation) << 16
		case "portGroup":
			extraPG = true
		}
	}
	elem(b, "vdnScopeId", scope)
	backing := func(value string) {
		open(b, "vdsContextWithBacking")
		g.switchBlock(b, g.Dvs)
		elem(b, "mtu", "1600")
		elem(b, "promiscuousMode", "false")
		elem(b, "backingType", "portgroup")
		elem(b, "backingValue", value)
		elem(b, "missingOnVc", "false")
		closeTag(b, "vdsContextWithBacking")
	}
	for j := 0; j < g.portGroups; j++ {
		backing("dvportgroup-" + strconv.Itoa(pgBase+r.index*g.portGroups+j))
	}
	if extraPG {
		backing("dvportgroup-g" + strconv.Itoa(g.Generation) + "-" + strconv.Itoa(r.n))
	}
	elem(b, "vdnId", strconv.Itoa(vni))
	elem(b, "multicastAddr", ipv4String(mcast))
	elem(b, "guestVlanAllowed", "false")
	elem(b, "controlPlaneMode", "MULTICAST_MODE")
	elem(b, "macLearningEnabled", "false")
	closeTag(b, "virtualWire")
}

func (g *gen) clusterRef(b *bytes.Buffer, id, name string, rev int, desc string) {
	open(b, "cluster")
	elem(b, "objectId", id)
	elem(b, "objectTypeName", "ClusterComputeResource")
	elem(b, "vsmUuid", "4207B6A2-0F4C-9A3D-5C3E-0A1B2C3D4E5F")
	elem(b, "nodeId", "8d4f2a1e-3b5c-4d6e-9f70-112233445566")
	elem(b, "revision", strconv.Itoa(rev))
	open(b, "type")
	elem(b, "typeName", "ClusterComputeResource")
	closeTag(b, "type")
	elem(b, "name", name)
	if desc != "" {
		elem(b, "description", desc)
	}
}

func (g *gen) vdnScope(b *bytes.Buffer, r rec) {
	open(b, "vdnScope")
	g.common(b, r, "VdnScope")
	// The manager repeats the key as id after objectId; the later one wins.
	elem(b, "id", g.id(r.n))
	open(b, "clusters")
	for j := 0; j < g.clusters; j++ {
		cn := clusterBase + r.index*g.clusters + j
		if r.changed && g.ChangeField == "cluster" && j == 0 {
			// The first cluster is swapped for another one.
			cn = 1000000*g.Generation + cn
		}
		open(b, "cluster")
		g.clusterRef(b, "domain-c"+strconv.Itoa(cn), "Cluster-"+strconv.Itoa(cn), 7, "")
		open(b, "scope")
		elem(b, "id", g.Datacenter)
		elem(b, "objectTypeName", "Datacenter")
		elem(b, "name", "Datacenter")
		closeTag(b, "scope")
		closeTag(b, "cluster")
		closeTag(b, "cluster")
	}
	closeTag(b, "clusters")
	elem(b, "virtualWireCount", "0")
	elem(b, "controlPlaneMode", "MULTICAST_MODE")
	elem(b, "cdoModeEnabled", "false")
	closeTag(b, "vdnScope")
}

func (g *gen) clusterMapping(b *bytes.Buffer, r rec) {
	name, desc := g.names(r)
	dc, dvs := g.Datacenter, g.Dvs
	if r.changed {
		switch g.ChangeField {
		case "datacenter":
			dc += "-g" + strconv.Itoa(g.Generation)
		case "dvs":
			dvs += "-g" + strconv.Itoa(g.Generation)
		}
	}
	open(b, "clusterMapping")
	// The record's common elements live in the child cluster.
	g.clusterRef(b, g.id(r.n), name, r.rev, desc)
	open(b, "scope")
	elem(b, "id", dc)
	elem(b, "objectTypeName", "Datacenter")
	elem(b, "name", "Datacenter "+dc)
	closeTag(b, "scope")
	b.WriteString("<clientHandle></clientHandle><extendedAttributes></extendedAttributes>")
	elem(b, "isUniversal", "false")
	closeTag(b, "cluster")
	open(b, "clusterMappingSpec")
	g.switchBlock(b, dvs)
	elem(b, "vlanId", "0")
	elem(b, "vmknicCount", "1")
	elem(b, "ipAddressingMode", "DHCP")
	elem(b, "teaming", "FAILOVER_ORDER")
	elem(b, "uplinkPortName", "Uplink 1")
	closeTag(b, "clusterMappingSpec")
	closeTag(b, "clusterMapping")
}

func (g *gen) rangeCommon(b *bytes.Buffer, r rec) {
	name, desc := g.names(r)
	elem(b, g.k.idElement, g.id(r.n))
	elem(b, "revision", strconv.Itoa(r.rev))
	elem(b, "name", name)
	elem(b, "description", desc)
	elem(b, "isUniversal", "false")
	elem(b, "universalRevision", "0")
}

func (g *gen) rangeShift(r rec) (db, de int64) {
	if r.changed {
		switch g.ChangeField {
		case "begin":
			db = 1
		case "end":
			de = -1
		}
	}
	return db, de
}

func (g *gen) multicastRange(b *bytes.Buffer, r rec) {
	db, de := g.rangeShift(r)
	begin := int64(rangeAddr) + int64(r.index)*g.rangeSize
	end := begin + g.rangeSize - 1
	open(b, "multicastRange")
	g.rangeCommon(b, r)
	elem(b, "begin", ipv4String(uint32(begin+db*int64(g.Generation))))
	elem(b, "end", ipv4String(uint32(end+de*int64(g.Generation))))
	closeTag(b, "multicastRange")
}

func (g *gen) segmentRange(b *bytes.Buffer, r rec) {
	db, de := g.rangeShift(r)
	begin := rangeBase + int64(r.index)*g.rangeSize
	end := begin + g.rangeSize - 1
	open(b, "segmentRange")
	g.rangeCommon(b, r)
	elem(b, "begin", strconv.FormatInt(begin+db*int64(g.Generation), 10))
	elem(b, "end", strconv.FormatInt(end+de*int64(g.Generation), 10))
	closeTag(b, "segmentRange")
}

func (g *gen) heartbeat() []byte {
	var b bytes.Buffer
	b.WriteString("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n")
	open(&b, g.k.root)
	elem(&b, "currentLoggedInUser", "admin")
	elem(&b, "hostName", "vsm-stub")
	elem(&b, "versionInfo", version)
	closeTag(&b, g.k.root)
	b.WriteByte('\n')
	return b.Bytes()
}

func open(b *bytes.Buffer, name string) {
	b.WriteByte('<')
	b.WriteString(name)
	b.WriteByte('>')
}

func closeTag(b *bytes.Buffer, name string) {
	b.WriteString("</")
	b.WriteString(name)
	b.WriteByte('>')
}

func elem(b *bytes.Buffer, name, text string) {
	open(b, name)
	escapeText(b, text)
	closeTag(b, name)
}

func escapeText(b *bytes.Buffer, s string) {
	for i := 0; i < len(s); i++ {
		switch c := s[i]; c {
		case '&':
			b.WriteString("&amp;")
		case '<':
			b.WriteString("&lt;")
		case '>':
			b.WriteString("&gt;")
		case '"':
			b.WriteString("&quot;")
		case '\'':
			b.WriteString("&apos;")
		default:
			b.WriteByte(c)
		}
	}
}
