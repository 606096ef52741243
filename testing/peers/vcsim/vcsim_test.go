package main

import (
	"bufio"
	"bytes"
	"context"
	"crypto/tls"
	"encoding/json"
	"encoding/xml"
	"fmt"
	"io"
	"net/http"
	"os"
	"reflect"
	"regexp"
	"sort"
	"strings"
	"testing"
	"time"

	"github.com/vmware/govmomi/vim25"
	"github.com/vmware/govmomi/vim25/methods"
	"github.com/vmware/govmomi/vim25/mo"
	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
)

// One simulator serves all tests: the program itself, started through run()
// as a test harness would start the binary. TestShutdown, the last test,
// stops it.

const (
	testUser = "harbec@vsphere.local"
	testPass = "s3cret!"
)

var sim struct {
	urlLine, controlLine string
	url, control         string
	stdin                *io.PipeWriter
	exit                 chan int
	stopped              bool // by TestShutdown
}

// testLog takes the simulator's own log; VCSIM_TEST_LOG=1 shows it.
var testLog io.Writer = io.Discard

func TestMain(m *testing.M) {
	if os.Getenv("VCSIM_TEST_LOG") != "" {
		testLog = os.Stderr
	}
	stdinR, stdinW := io.Pipe()
	outR, outW := io.Pipe()
	sim.stdin = stdinW
	sim.exit = make(chan int, 1)
	go func() {
		sim.exit <- run([]string{"-username", testUser, "-password", testPass}, stdinR, outW, testLog)
		outW.Close()
	}()

	lines := make(chan string)
	go func() {
		sc := bufio.NewScanner(outR)
		for sc.Scan() {
			lines <- sc.Text()
		}
		close(lines)
	}()
	for i := 0; i < 2; i++ {
		select {
		case l, ok := <-lines:
			if !ok {
				fmt.Fprintln(os.Stderr, "simulator exited before it was ready")
				os.Exit(1)
			}
			if i == 0 {
				sim.urlLine = l
			} else {
				sim.controlLine = l
			}
		case <-time.After(30 * time.Second):
			fmt.Fprintln(os.Stderr, "simulator not ready after 30 s")
			os.Exit(1)
		}
	}
	sim.url = strings.TrimPrefix(sim.urlLine, "VCSIM_URL=")
	sim.control = strings.TrimPrefix(sim.controlLine, "VCSIM_CONTROL=")

	code := m.Run()
	if !sim.stopped {
		stdinW.Close()
		select {
		case <-sim.exit:
		case <-time.After(10 * time.Second):
		}
	}
	os.Exit(code)
}

func TestReadyLines(t *testing.T) {
	if !regexp.MustCompile(`^VCSIM_URL=https://127\.0\.0\.1:\d+/sdk$`).MatchString(sim.urlLine) {
		t.Errorf("first line %q", sim.urlLine)
	}
	if !regexp.MustCompile(`^VCSIM_CONTROL=http://127\.0\.0\.1:\d+$`).MatchString(sim.controlLine) {
		t.Errorf("second line %q", sim.controlLine)
	}
}

// ---- helpers ----

// ctl calls the control interface and decodes the reply into out (if not
// nil); it returns the status code.
func ctl(t *testing.T, method, path string, body, out interface{}) int {
	t.Helper()
	var rd io.Reader
	if body != nil {
		b, err := json.Marshal(body)
		if err != nil {
			t.Fatal(err)
		}
		rd = bytes.NewReader(b)
	}
	req, err := http.NewRequest(method, sim.control+path, rd)
	if err != nil {
		t.Fatal(err)
	}
	res, err := http.DefaultClient.Do(req)
	if err != nil {
		t.Fatalf("%s %s: %v", method, path, err)
	}
	defer res.Body.Close()
	data, _ := io.ReadAll(res.Body)
	if out != nil && res.StatusCode == http.StatusOK {
		if err := json.Unmarshal(data, out); err != nil {
			t.Fatalf("%s %s: %v in %s", method, path, err, data)
		}
	}
	return res.StatusCode
}

func mustCtl(t *testing.T, method, path string, body, out interface{}) {
	t.Helper()
	if code := ctl(t, method, path, body, out); code != http.StatusOK {
		t.Fatalf("%s %s: status %d", method, path, code)
	}
}

func reset(t *testing.T) {
	t.Helper()
	mustCtl(t, "POST", "/reset", nil, nil)
}

func inventory(t *testing.T) InventoryView {
	t.Helper()
	var inv InventoryView
	mustCtl(t, "GET", "/inventory", nil, &inv)
	return inv
}

// connect makes a client without logging in.
func connect(t *testing.T) *vim25.Client {
	t.Helper()
	u, err := soap.ParseURL(sim.url)
	if err != nil {
		t.Fatal(err)
	}
	c, err := vim25.NewClient(context.Background(), soap.NewClient(u, true))
	if err != nil {
		t.Fatal(err)
	}
	return c
}

// login makes a logged-in client that logs out when the test ends.
func login(t *testing.T) *vim25.Client {
	t.Helper()
	c := connect(t)
	ctx := context.Background()
	_, err := methods.Login(ctx, c, &types.Login{This: *c.ServiceContent.SessionManager, UserName: testUser, Password: testPass})
	if err != nil {
		t.Fatalf("login: %v", err)
	}
	t.Cleanup(func() { _, _ = methods.Logout(ctx, c, &types.Logout{This: *c.ServiceContent.SessionManager}) })
	return c
}

// vimFault returns the fault string and the detail fault of a SOAP fault.
func vimFault(t *testing.T, err error) (string, types.AnyType) {
	t.Helper()
	if err == nil {
		t.Fatal("expected a SOAP fault, got success")
	}
	if !soap.IsSoapFault(err) {
		t.Fatalf("expected a SOAP fault, got %v", err)
	}
	f := soap.ToSoapFault(err)
	return f.String, f.VimFault()
}

func currentTime(c *vim25.Client) error {
	_, err := methods.GetCurrentTime(context.Background(), c)
	return err
}

// libraryFilterSpec is the property filter that libHarbec installs: six
// traversals from the root folder and six PropertySpecs.
func libraryFilterSpec(root types.ManagedObjectReference) types.PropertyFilterSpec {
	sel := func(names ...string) []types.BaseSelectionSpec {
		var out []types.BaseSelectionSpec
		for _, n := range names {
			out = append(out, &types.SelectionSpec{Name: n})
		}
		return out
	}
	trav := func(name, typ, path string, selectSet []types.BaseSelectionSpec) *types.TraversalSpec {
		return &types.TraversalSpec{SelectionSpec: types.SelectionSpec{Name: name}, Type: typ, Path: path, Skip: types.NewBool(false), SelectSet: selectSet}
	}
	prop := func(typ string, paths ...string) types.PropertySpec {
		return types.PropertySpec{Type: typ, All: types.NewBool(false), PathSet: paths}
	}
	return types.PropertyFilterSpec{
		ObjectSet: []types.ObjectSpec{{
			Obj:  root,
			Skip: types.NewBool(false),
			SelectSet: []types.BaseSelectionSpec{
				trav("folderTravSpec", "Folder", "childEntity", sel("dcVMTravSpec", "dcHostTravSpec", "folderTravSpec", "dcNwFolderTravSpec", "compResHostTravSpec")),
				trav("dcVMTravSpec", "Datacenter", "vmFolder", sel("folderTravSpec")),
				trav("dcNwFolderTravSpec", "Datacenter", "networkFolder", sel("folderTravSpec")),
				trav("dcHostTravSpec", "Datacenter", "hostFolder", sel("folderTravSpec")),
				trav("compResHostTravSpec", "ComputeResource", "host", nil),
				trav("clusterCompResHostTravSpec", "ClusterComputeResource", "host", nil),
			},
		}},
		PropSet: []types.PropertySpec{
			prop("VmwareDistributedVirtualSwitch", "name", "uuid"),
			prop("VirtualMachine", "name", "runtime.powerState", "config.hardware", "runtime.host", "config.ftInfo"),
			prop("HostSystem", "name", "config.network", "configManager.networkSystem", "parent", "hardware"),
			prop("DistributedVirtualPortgroup", "name", "config"),
			prop("Datacenter", "name", "hostFolder"),
			prop("ComputeResource", "parent"),
		},
	}
}

func createFilter(t *testing.T, c *vim25.Client, spec types.PropertyFilterSpec) types.ManagedObjectReference {
	t.Helper()
	res, err := methods.CreateFilter(context.Background(), c, &types.CreateFilter{This: c.ServiceContent.PropertyCollector, Spec: spec})
	if err != nil {
		t.Fatalf("CreateFilter: %v", err)
	}
	return res.Returnval
}

func checkForUpdates(t *testing.T, c *vim25.Client, version string) *types.UpdateSet {
	t.Helper()
	res, err := methods.CheckForUpdates(context.Background(), c, &types.CheckForUpdates{This: c.ServiceContent.PropertyCollector, Version: version})
	if err != nil {
		t.Fatalf("CheckForUpdates(%q): %v", version, err)
	}
	return res.Returnval
}

// objectUpdates flattens an update set.
func objectUpdates(set *types.UpdateSet) []types.ObjectUpdate {
	var out []types.ObjectUpdate
	if set == nil {
		return nil
	}
	for _, f := range set.FilterSet {
		out = append(out, f.ObjectSet...)
	}
	return out
}

// watcher follows one property collector with CheckForUpdates.
type watcher struct {
	c       *vim25.Client
	version string
}

func newWatcher(t *testing.T, c *vim25.Client) *watcher {
	w := &watcher{c: c}
	set := checkForUpdates(t, c, "")
	if set == nil {
		t.Fatal("CheckForUpdates with an empty version returned no update set")
	}
	w.version = set.Version
	return w
}

// await collects object updates until one satisfies pred, or fails after 10 s.
func (w *watcher) await(t *testing.T, what string, pred func(types.ObjectUpdate) bool) types.ObjectUpdate {
	t.Helper()
	deadline := time.Now().Add(10 * time.Second)
	for time.Now().Before(deadline) {
		set := checkForUpdates(t, w.c, w.version)
		if set == nil {
			time.Sleep(20 * time.Millisecond)
			continue
		}
		w.version = set.Version
		for _, u := range objectUpdates(set) {
			if pred(u) {
				return u
			}
		}
	}
	t.Fatalf("no update: %s", what)
	return types.ObjectUpdate{}
}

func change(u types.ObjectUpdate, name string) (types.AnyType, bool) {
	for _, c := range u.ChangeSet {
		if c.Name == name {
			return c.Val, true
		}
	}
	return nil, false
}

// ---- login and sessions ----

func TestLogin(t *testing.T) {
	ctx := context.Background()

	t.Run("wrong password is InvalidLogin", func(t *testing.T) {
		c := connect(t)
		_, err := methods.Login(ctx, c, &types.Login{This: *c.ServiceContent.SessionManager, UserName: testUser, Password: "wrong"})
		msg, detail := vimFault(t, err)
		if reflectTypeName(detail) != "InvalidLogin" {
			t.Errorf("detail %T, want InvalidLogin", detail)
		}
		if msg != "Cannot complete login due to an incorrect user name or password." {
			t.Errorf("fault string %q", msg)
		}
	})

	t.Run("wrong user is InvalidLogin", func(t *testing.T) {
		c := connect(t)
		_, err := methods.Login(ctx, c, &types.Login{This: *c.ServiceContent.SessionManager, UserName: "root", Password: testPass})
		if _, detail := vimFault(t, err); reflectTypeName(detail) != "InvalidLogin" {
			t.Errorf("detail %T", detail)
		}
	})

	t.Run("calls need a session", func(t *testing.T) {
		c := connect(t)
		if _, detail := vimFault(t, currentTime(c)); reflectTypeName(detail) != "NotAuthenticated" {
			t.Errorf("CurrentTime without login: %T", detail)
		}
		// also for the methods served outside the simulator
		_, err := methods.LogUserEvent(ctx, c, &types.LogUserEvent{This: *c.ServiceContent.EventManager, Entity: c.ServiceContent.RootFolder, Msg: "x"})
		if _, detail := vimFault(t, err); reflectTypeName(detail) != "NotAuthenticated" {
			t.Errorf("LogUserEvent without login: %T", detail)
		}
	})

	t.Run("login, work, logout", func(t *testing.T) {
		c := connect(t)
		res, err := methods.Login(ctx, c, &types.Login{This: *c.ServiceContent.SessionManager, UserName: testUser, Password: testPass})
		if err != nil {
			t.Fatal(err)
		}
		if res.Returnval.UserName != testUser {
			t.Errorf("session user %q", res.Returnval.UserName)
		}
		if err := currentTime(c); err != nil {
			t.Errorf("CurrentTime after login: %v", err)
		}
		if _, err := methods.Logout(ctx, c, &types.Logout{This: *c.ServiceContent.SessionManager}); err != nil {
			t.Fatal(err)
		}
		if _, detail := vimFault(t, currentTime(c)); reflectTypeName(detail) != "NotAuthenticated" {
			t.Errorf("CurrentTime after logout: %T", detail)
		}
	})

	t.Run("session cookie has vCenter's form", func(t *testing.T) {
		body := `<?xml version="1.0" encoding="UTF-8"?><soapenv:Envelope xmlns:soapenv="http://schemas.xmlsoap.org/soap/envelope/"><soapenv:Body>` +
			`<Login xmlns="urn:vim25"><_this type="SessionManager">SessionManager</_this><userName>` + testUser + `</userName><password>` + testPass + `</password></Login>` +
			`</soapenv:Body></soapenv:Envelope>`
		res, out := rawSOAP(t, body)
		if res.StatusCode != http.StatusOK {
			t.Fatalf("status %d: %s", res.StatusCode, out)
		}
		cookie := res.Header.Get("Set-Cookie")
		if !regexp.MustCompile(`^vmware_soap_session="[^"]+"; Path=/; HttpOnly; Secure$`).MatchString(cookie) {
			t.Errorf("Set-Cookie %q", cookie)
		}
	})
}

func reflectTypeName(v interface{}) string {
	if v == nil {
		return "<nil>"
	}
	return strings.TrimPrefix(strings.TrimPrefix(fmt.Sprintf("%T", v), "*"), "types.")
}

// rawSOAP posts a hand-written envelope, as a gSOAP client would, and
// returns the response and its body.
func rawSOAP(t *testing.T, envelope string, cookies ...*http.Cookie) (*http.Response, string) {
	t.Helper()
	client := &http.Client{Transport: &http.Transport{TLSClientConfig: &tls.Config{InsecureSkipVerify: true}}}
	req, err := http.NewRequest("POST", sim.url, strings.NewReader(envelope))
	if err != nil {
		t.Fatal(err)
	}
	req.Header.Set("Content-Type", "text/xml; charset=utf-8")
	req.Header.Set("SOAPAction", `""`)
	for _, c := range cookies {
		req.AddCookie(c)
	}
	res, err := client.Do(req)
	if err != nil {
		t.Fatal(err)
	}
	defer res.Body.Close()
	b, _ := io.ReadAll(res.Body)
	return res, string(b)
}

// rawLogin logs in with a hand-written envelope and returns the cookie.
func rawLogin(t *testing.T) *http.Cookie {
	t.Helper()
	res, out := rawSOAP(t, `<?xml version="1.0" encoding="UTF-8"?><SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" xmlns:ns2="urn:vim25"><SOAP-ENV:Body>`+
		`<ns2:Login><ns2:_this type="SessionManager">SessionManager</ns2:_this><ns2:userName>`+testUser+`</ns2:userName><ns2:password>`+testPass+`</ns2:password></ns2:Login>`+
		`</SOAP-ENV:Body></SOAP-ENV:Envelope>`)
	if res.StatusCode != http.StatusOK {
		t.Fatalf("raw login: %d %s", res.StatusCode, out)
	}
	for _, c := range res.Cookies() {
		if c.Name == soap.SessionCookieName {
			return c
		}
	}
	t.Fatal("raw login: no session cookie")
	return nil
}

// ---- the inventory as libHarbec's property filter sees it ----

func TestLibraryFilterSeesInventoryWithVCenterTypes(t *testing.T) {
	reset(t)
	inv := inventory(t)
	c := login(t)
	createFilter(t, c, libraryFilterSpec(c.ServiceContent.RootFolder))
	res, err := methods.WaitForUpdates(context.Background(), c, &types.WaitForUpdates{This: c.ServiceContent.PropertyCollector})
	if err != nil {
		t.Fatal(err)
	}
	set := res.Returnval
	if set.Version != "1" {
		t.Errorf("first version %q, want 1", set.Version)
	}
	for _, f := range set.FilterSet {
		if f.Filter.Type != "PropertyFilter" {
			t.Errorf("filter type %q", f.Filter.Type)
		}
	}

	seen := map[string][]string{}
	byRef := map[string]types.ObjectUpdate{}
	for _, u := range objectUpdates(&set) {
		if u.Kind != types.ObjectUpdateKindEnter {
			t.Errorf("%s: kind %s", u.Obj, u.Kind)
		}
		seen[u.Obj.Type] = append(seen[u.Obj.Type], u.Obj.Value)
		byRef[u.Obj.Value] = u
	}
	if _, ok := seen["DistributedVirtualSwitch"]; ok {
		t.Error("the switch shows its simulator type DistributedVirtualSwitch")
	}

	want := map[string][]string{
		"VmwareDistributedVirtualSwitch": nil,
		"VirtualMachine":                 nil,
		"HostSystem":                     nil,
		"DistributedVirtualPortgroup":    nil,
		"Datacenter":                     nil,
	}
	for _, d := range inv.Dvs {
		want["VmwareDistributedVirtualSwitch"] = append(want["VmwareDistributedVirtualSwitch"], d.Ref)
	}
	for _, v := range inv.Vms {
		want["VirtualMachine"] = append(want["VirtualMachine"], v.Ref)
	}
	for _, h := range inv.Hosts {
		want["HostSystem"] = append(want["HostSystem"], h.Ref)
	}
	for _, p := range inv.Portgroups {
		want["DistributedVirtualPortgroup"] = append(want["DistributedVirtualPortgroup"], p.Ref)
	}
	for _, d := range inv.Datacenters {
		want["Datacenter"] = append(want["Datacenter"], d.Ref)
	}
	for _, cr := range inv.ComputeResources {
		want[cr.Type] = append(want[cr.Type], cr.Ref)
	}
	for typ, refs := range want {
		got := append([]string(nil), seen[typ]...)
		sort.Strings(got)
		sort.Strings(refs)
		if strings.Join(got, ",") != strings.Join(refs, ",") {
			t.Errorf("%s: filter saw %v, inventory has %v", typ, got, refs)
		}
	}
	if len(inv.Vms) != 6 || len(inv.Hosts) != 3 || len(inv.Dvs) != 1 {
		t.Fatalf("default inventory: %d machines, %d hosts, %d switches", len(inv.Vms), len(inv.Hosts), len(inv.Dvs))
	}
	dvs := inv.Dvs[0]

	t.Run("switch", func(t *testing.T) {
		u := byRef[dvs.Ref]
		if v, _ := change(u, "uuid"); v != dvs.Uuid {
			t.Errorf("uuid %v, inventory %s", v, dvs.Uuid)
		}
		if !regexp.MustCompile(`^([0-9a-f]{2} ){7}[0-9a-f]{2}-([0-9a-f]{2} ){7}[0-9a-f]{2}$`).MatchString(dvs.Uuid) {
			t.Errorf("uuid %q is not in vCenter's form", dvs.Uuid)
		}
	})

	t.Run("port groups name their switch with its vCenter type", func(t *testing.T) {
		for _, p := range inv.Portgroups {
			v, ok := change(byRef[p.Ref], "config")
			if !ok {
				t.Fatalf("%s: no config", p.Ref)
			}
			cfg := v.(types.DVPortgroupConfigInfo)
			if cfg.DistributedVirtualSwitch == nil || cfg.DistributedVirtualSwitch.Type != dvsWireType || cfg.DistributedVirtualSwitch.Value != dvs.Ref {
				t.Errorf("%s: distributedVirtualSwitch %v", p.Ref, cfg.DistributedVirtualSwitch)
			}
			setting := cfg.DefaultPortConfig.(*types.VMwareDVSPortSetting)
			switch vlan := setting.Vlan.(type) {
			case *types.VmwareDistributedVirtualSwitchTrunkVlanSpec:
				if !p.Uplink {
					t.Errorf("%s: trunk on a plain port group", p.Ref)
				}
			case *types.VmwareDistributedVirtualSwitchVlanIdSpec:
				if p.VlanId == nil || vlan.VlanId != *p.VlanId {
					t.Errorf("%s: vlan %d, inventory %v", p.Ref, vlan.VlanId, p.VlanId)
				}
			default:
				t.Errorf("%s: vlan %T", p.Ref, vlan)
			}
		}
	})

	t.Run("member hosts carry a proxy switch with their uplink", func(t *testing.T) {
		for _, h := range inv.Hosts {
			v, ok := change(byRef[h.Ref], "config.network")
			if !ok {
				t.Fatalf("%s: no config.network", h.Ref)
			}
			net := v.(types.HostNetworkInfo)
			if len(net.ProxySwitch) != 1 {
				t.Fatalf("%s: %d proxy switches", h.Ref, len(net.ProxySwitch))
			}
			ps := net.ProxySwitch[0]
			b, ok := ps.Spec.Backing.(*types.DistributedVirtualSwitchHostMemberPnicBacking)
			if !ok || len(b.PnicSpec) != 1 {
				t.Fatalf("%s: backing %T", h.Ref, ps.Spec.Backing)
			}
			spec := b.PnicSpec[0]
			if ps.DvsUuid != dvs.Uuid || ps.Mtu != 1500 || spec.PnicDevice != uplinkDevice || spec.UplinkPortKey == "" {
				t.Errorf("%s: proxy switch %+v, pnicSpec %+v", h.Ref, ps, spec)
			}
			if len(ps.UplinkPort) != 1 || ps.UplinkPort[0].Key != spec.UplinkPortKey {
				t.Errorf("%s: uplink ports %+v, pnic on %s", h.Ref, ps.UplinkPort, spec.UplinkPortKey)
			}
			if ns, _ := change(byRef[h.Ref], "configManager.networkSystem"); ns.(types.ManagedObjectReference).Value != h.NetworkSystem {
				t.Errorf("%s: network system %v", h.Ref, ns)
			}
		}
	})

	t.Run("machines have a DV port on their card", func(t *testing.T) {
		keys := map[string]bool{}
		for _, vm := range inv.Vms {
			v, ok := change(byRef[vm.Ref], "config.hardware")
			if !ok {
				t.Fatalf("%s: no config.hardware", vm.Ref)
			}
			var cards int
			for _, d := range v.(types.VirtualHardware).Device {
				nic, ok := d.(types.BaseVirtualEthernetCard)
				if !ok {
					continue
				}
				cards++
				b := nic.GetVirtualEthernetCard().Backing.(*types.VirtualEthernetCardDistributedVirtualPortBackingInfo)
				if b.Port.SwitchUuid != dvs.Uuid || b.Port.PortKey == "" || keys[b.Port.PortKey] || b.Port.PortKey != vm.Nics[0].PortKey {
					t.Errorf("%s: port %+v", vm.Ref, b.Port)
				}
				keys[b.Port.PortKey] = true
			}
			if cards != 1 {
				t.Errorf("%s: %d cards", vm.Ref, cards)
			}
			if h, _ := change(byRef[vm.Ref], "runtime.host"); h.(types.ManagedObjectReference).Value != vm.Host {
				t.Errorf("%s: runtime.host %v, inventory %s", vm.Ref, h, vm.Host)
			}
		}
	})

	t.Run("replies carry the vCenter type on the wire", func(t *testing.T) {
		cookie := rawLogin(t)
		res, out := rawSOAP(t, `<?xml version="1.0"?><soapenv:Envelope xmlns:soapenv="http://schemas.xmlsoap.org/soap/envelope/" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"><soapenv:Body>`+
			`<RetrieveProperties xmlns="urn:vim25"><_this type="PropertyCollector">propertyCollector</_this><specSet>`+
			`<propSet><type>VmwareDistributedVirtualSwitch</type><pathSet>name</pathSet></propSet>`+
			`<propSet><type>DistributedVirtualPortgroup</type><pathSet>config.distributedVirtualSwitch</pathSet></propSet>`+
			`<objectSet><obj type="VmwareDistributedVirtualSwitch">`+dvs.Ref+`</obj></objectSet>`+
			`<objectSet><obj type="DistributedVirtualPortgroup">`+inv.Portgroups[0].Ref+`</obj></objectSet>`+
			`</specSet></RetrieveProperties></soapenv:Body></soapenv:Envelope>`, cookie)
		if res.StatusCode != http.StatusOK {
			t.Fatalf("status %d: %s", res.StatusCode, out)
		}
		if strings.Contains(out, `type="DistributedVirtualSwitch"`) {
			t.Errorf("reply shows the simulator's type: %s", out)
		}
		if strings.Count(out, `type="VmwareDistributedVirtualSwitch"`) != 2 {
			t.Errorf("reply lacks the switch's vCenter type twice: %s", out)
		}
	})
}

// ---- CheckForUpdates and update versions ----

func TestCheckForUpdates(t *testing.T) {
	reset(t)
	inv := inventory(t)
	c := login(t)
	createFilter(t, c, libraryFilterSpec(c.ServiceContent.RootFolder))

	first := checkForUpdates(t, c, "")
	if first == nil || first.Version != "1" || len(objectUpdates(first)) == 0 {
		t.Fatalf("first CheckForUpdates: %+v", first)
	}
	if set := checkForUpdates(t, c, "1"); set != nil {
		t.Fatalf("no change, yet an update set: %+v", set)
	}

	vm := inv.Vms[0]
	mustCtl(t, "POST", "/vm/rename", map[string]string{"vm": vm.Ref, "name": "renamed-by-test"}, nil)
	defer mustCtl(t, "POST", "/vm/rename", map[string]string{"vm": vm.Ref, "name": vm.Name}, nil)

	var set *types.UpdateSet
	for i := 0; i < 8 && set == nil; i++ {
		set = checkForUpdates(t, c, "1")
	}
	if set == nil {
		t.Fatal("the rename never showed")
	}
	if set.Version != "2" {
		t.Errorf("version %q, want 2", set.Version)
	}
	updates := objectUpdates(set)
	if len(updates) != 1 || updates[0].Obj.Value != vm.Ref || updates[0].Kind != types.ObjectUpdateKindModify {
		t.Fatalf("updates %+v", updates)
	}
	if name, _ := change(updates[0], "name"); name != "renamed-by-test" {
		t.Errorf("name change %v", name)
	}

	_, err := methods.CheckForUpdates(context.Background(), c, &types.CheckForUpdates{This: c.ServiceContent.PropertyCollector, Version: "9"})
	if _, detail := vimFault(t, err); reflectTypeName(detail) != "InvalidCollectorVersion" {
		t.Errorf("unknown version: %T", detail)
	}
}

func TestWaitForUpdates(t *testing.T) {
	reset(t)
	inv := inventory(t)
	ctx := context.Background()
	vm := inv.Vms[2]

	t.Run("every waiting session wakes on a change", func(t *testing.T) {
		type result struct {
			set *types.UpdateSet
			err error
		}
		var waits []chan result
		for i := 0; i < 2; i++ {
			c := login(t)
			createFilter(t, c, libraryFilterSpec(c.ServiceContent.RootFolder))
			first, err := methods.WaitForUpdates(ctx, c, &types.WaitForUpdates{This: c.ServiceContent.PropertyCollector})
			if err != nil {
				t.Fatal(err)
			}
			done := make(chan result, 1)
			go func(version string) {
				res, err := methods.WaitForUpdates(ctx, c, &types.WaitForUpdates{This: c.ServiceContent.PropertyCollector, Version: version})
				if err != nil {
					done <- result{err: err}
					return
				}
				done <- result{set: &res.Returnval}
			}(first.Returnval.Version)
			waits = append(waits, done)
		}
		time.Sleep(300 * time.Millisecond)
		for i, w := range waits {
			select {
			case r := <-w:
				t.Fatalf("session %d returned without a change: %+v %v", i, r.set, r.err)
			default:
			}
		}
		mustCtl(t, "POST", "/vm/rename", map[string]string{"vm": vm.Ref, "name": "wake-up"}, nil)
		defer mustCtl(t, "POST", "/vm/rename", map[string]string{"vm": vm.Ref, "name": vm.Name}, nil)
		for i, w := range waits {
			select {
			case r := <-w:
				if r.err != nil {
					t.Fatalf("session %d: %v", i, r.err)
				}
				u := objectUpdates(r.set)
				if len(u) != 1 || u[0].Obj.Value != vm.Ref || r.set.Version != "2" {
					t.Errorf("session %d: version %s, updates %+v", i, r.set.Version, u)
				}
			case <-time.After(5 * time.Second):
				t.Fatalf("session %d did not wake", i)
			}
		}
	})

	t.Run("CancelWaitForUpdates", func(t *testing.T) {
		c := login(t)
		createFilter(t, c, libraryFilterSpec(c.ServiceContent.RootFolder))
		first, err := methods.WaitForUpdates(ctx, c, &types.WaitForUpdates{This: c.ServiceContent.PropertyCollector})
		if err != nil {
			t.Fatal(err)
		}
		done := make(chan error, 1)
		go func() {
			_, err := methods.WaitForUpdates(ctx, c, &types.WaitForUpdates{This: c.ServiceContent.PropertyCollector, Version: first.Returnval.Version})
			done <- err
		}()
		time.Sleep(200 * time.Millisecond)
		if _, err := methods.CancelWaitForUpdates(ctx, c, &types.CancelWaitForUpdates{This: c.ServiceContent.PropertyCollector}); err != nil {
			t.Fatal(err)
		}
		select {
		case err := <-done:
			if _, detail := vimFault(t, err); reflectTypeName(detail) != "RequestCanceled" {
				t.Errorf("canceled wait: %T", detail)
			}
		case <-time.After(5 * time.Second):
			t.Fatal("the wait did not end")
		}
	})
}

// ---- inventory changes through the control interface ----

func TestInventoryChangesReachPropertyCollector(t *testing.T) {
	reset(t)
	inv := inventory(t)
	c := login(t)
	createFilter(t, c, libraryFilterSpec(c.ServiceContent.RootFolder))
	w := newWatcher(t, c)

	vm := inv.Vms[1]
	var cluster ComputeView
	for _, cr := range inv.ComputeResources {
		if cr.Type == "ClusterComputeResource" {
			cluster = cr
		}
	}

	t.Run("power off and on", func(t *testing.T) {
		var out VMView
		mustCtl(t, "POST", "/vm/power", map[string]string{"vm": vm.Ref, "state": "poweredOff"}, &out)
		if out.PowerState != "poweredOff" {
			t.Errorf("view after power off: %s", out.PowerState)
		}
		w.await(t, "powerState off", func(u types.ObjectUpdate) bool {
			v, ok := change(u, "runtime.powerState")
			return u.Obj.Value == vm.Ref && ok && v == types.VirtualMachinePowerStatePoweredOff
		})
		mustCtl(t, "POST", "/vm/power", map[string]string{"vm": vm.Ref, "state": "poweredOn"}, nil)
		w.await(t, "powerState on", func(u types.ObjectUpdate) bool {
			v, ok := change(u, "runtime.powerState")
			return u.Obj.Value == vm.Ref && ok && v == types.VirtualMachinePowerStatePoweredOn
		})
		if code := ctl(t, "POST", "/vm/power", map[string]string{"vm": vm.Ref, "state": "sideways"}, nil); code != http.StatusBadRequest {
			t.Errorf("bad state: status %d", code)
		}
		if code := ctl(t, "POST", "/vm/power", map[string]string{"vm": "vm-0", "state": "poweredOff"}, nil); code != http.StatusNotFound {
			t.Errorf("unknown machine: status %d", code)
		}
	})

	var created VMView
	t.Run("create a machine", func(t *testing.T) {
		mustCtl(t, "POST", "/vm/create", map[string]interface{}{"name": "test-vm", "host": inv.Hosts[0].Ref}, &created)
		if created.Host != inv.Hosts[0].Ref || created.PowerState != "poweredOn" || len(created.Nics) != 1 || created.Nics[0].PortKey == "" {
			t.Fatalf("created %+v", created)
		}
		u := w.await(t, "enter of the new machine", func(u types.ObjectUpdate) bool {
			return u.Obj.Value == created.Ref && u.Kind == types.ObjectUpdateKindEnter
		})
		if name, _ := change(u, "name"); name != "test-vm" {
			t.Errorf("name %v", name)
		}
		if _, ok := change(u, "config.hardware"); !ok {
			t.Error("no config.hardware in the enter record")
		}
	})

	t.Run("migrate a machine", func(t *testing.T) {
		if created.Ref == "" {
			t.Skip("no machine")
		}
		dest := inv.Hosts[1].Ref
		mustCtl(t, "POST", "/vm/migrate", map[string]string{"vm": created.Ref, "host": dest}, nil)
		w.await(t, "runtime.host of the moved machine", func(u types.ObjectUpdate) bool {
			v, ok := change(u, "runtime.host")
			return u.Obj.Value == created.Ref && ok && v.(types.ManagedObjectReference).Value == dest
		})
	})

	t.Run("destroy a machine", func(t *testing.T) {
		if created.Ref == "" {
			t.Skip("no machine")
		}
		mustCtl(t, "POST", "/vm/destroy", map[string]string{"vm": created.Ref}, nil)
		w.await(t, "leave of the machine", func(u types.ObjectUpdate) bool {
			return u.Obj.Value == created.Ref && u.Kind == types.ObjectUpdateKindLeave
		})
		if code := ctl(t, "POST", "/vm/destroy", map[string]string{"vm": created.Ref}, nil); code != http.StatusNotFound {
			t.Errorf("second destroy: status %d", code)
		}
	})

	var added HostView
	t.Run("add a host to the cluster", func(t *testing.T) {
		mustCtl(t, "POST", "/host/add", map[string]string{"name": "esx-new.example.com", "cluster": cluster.Ref}, &added)
		if len(added.Dvs) != 1 {
			t.Errorf("new host joined %v", added.Dvs)
		}
		u := w.await(t, "enter of the new host", func(u types.ObjectUpdate) bool {
			if u.Obj.Value != added.Ref {
				return false
			}
			v, ok := change(u, "config.network")
			return ok && len(v.(types.HostNetworkInfo).ProxySwitch) == 1
		})
		if name, _ := change(u, "name"); u.Kind == types.ObjectUpdateKindEnter && name != "esx-new.example.com" {
			t.Errorf("name %v", name)
		}
		var vmOnNew VMView
		mustCtl(t, "POST", "/vm/create", map[string]interface{}{"name": "vm-on-new", "host": added.Ref, "powerOn": false}, &vmOnNew)
		if vmOnNew.PowerState != "poweredOff" {
			t.Errorf("powerOn false: %s", vmOnNew.PowerState)
		}
	})

	t.Run("remove a host", func(t *testing.T) {
		if added.Ref == "" {
			t.Skip("no host")
		}
		if code := ctl(t, "POST", "/host/remove", map[string]string{"host": added.Ref}, nil); code != http.StatusConflict {
			t.Errorf("removing a host with machines: status %d", code)
		}
		mustCtl(t, "POST", "/host/remove", map[string]interface{}{"host": added.Ref, "force": true}, nil)
		w.await(t, "leave of the host", func(u types.ObjectUpdate) bool {
			return u.Obj.Value == added.Ref && u.Kind == types.ObjectUpdateKindLeave
		})
		for _, cr := range inventory(t).ComputeResources {
			for _, h := range cr.Hosts {
				if h == added.Ref {
					t.Errorf("%s still lists the host", cr.Ref)
				}
			}
		}
	})

	t.Run("port group create and destroy", func(t *testing.T) {
		var pg PortgroupView
		mustCtl(t, "POST", "/portgroup/create", map[string]interface{}{"dvs": inv.Dvs[0].Ref, "name": "test-pg", "vlan": 42}, &pg)
		if pg.VlanId == nil || *pg.VlanId != 42 || pg.Dvs != inv.Dvs[0].Ref {
			t.Fatalf("created %+v", pg)
		}
		w.await(t, "enter of the port group", func(u types.ObjectUpdate) bool {
			return u.Obj.Value == pg.Ref && u.Kind == types.ObjectUpdateKindEnter
		})
		mustCtl(t, "POST", "/portgroup/destroy", map[string]string{"portgroup": pg.Ref}, nil)
		w.await(t, "leave of the port group", func(u types.ObjectUpdate) bool {
			return u.Obj.Value == pg.Ref && u.Kind == types.ObjectUpdateKindLeave
		})
		inUse := inv.Portgroups[1].Ref // the machines' port group
		if code := ctl(t, "POST", "/portgroup/destroy", map[string]string{"portgroup": inUse}, nil); code != http.StatusConflict {
			t.Errorf("destroying a port group in use: status %d", code)
		}
	})

	t.Run("standalone host removal takes its compute resource", func(t *testing.T) {
		var h HostView
		mustCtl(t, "POST", "/host/add", map[string]string{"name": "standalone-new", "datacenter": inv.Datacenters[0].Ref}, &h)
		if h.ParentType != "ComputeResource" {
			t.Fatalf("parent %s", h.ParentType)
		}
		w.await(t, "enter of the compute resource", func(u types.ObjectUpdate) bool {
			return u.Obj.Value == h.Parent && u.Kind == types.ObjectUpdateKindEnter
		})
		mustCtl(t, "POST", "/host/remove", map[string]string{"host": h.Ref}, nil)
		w.await(t, "leave of the compute resource", func(u types.ObjectUpdate) bool {
			return u.Obj.Value == h.Parent && u.Kind == types.ObjectUpdateKindLeave
		})
	})
}

// ---- events ----

func TestEventCollector(t *testing.T) {
	reset(t)
	inv := inventory(t)
	c := login(t)
	ctx := context.Background()
	vm, src, dst := inv.Vms[0], inv.Vms[0].Host, inv.Hosts[2].Ref

	// An event from before the collector's begin time stays out of its page.
	mustCtl(t, "POST", "/events", map[string]string{"type": "VmBeingHotMigratedEvent", "vm": vm.Ref, "destHost": dst}, nil)

	now, err := methods.GetCurrentTime(ctx, c)
	if err != nil {
		t.Fatal(err)
	}
	filter := types.EventFilterSpec{
		Entity: &types.EventFilterSpecByEntity{Entity: c.ServiceContent.RootFolder, Recursion: types.EventFilterSpecRecursionOptionSelf},
		Time:   &types.EventFilterSpecByTime{BeginTime: now},
		Type:   []string{"VmMigratedEvent", "VmBeingHotMigratedEvent", "VmFailedMigrateEvent"},
	}
	res, err := methods.CreateCollectorForEvents(ctx, c, &types.CreateCollectorForEvents{This: *c.ServiceContent.EventManager, Filter: filter})
	if err != nil {
		t.Fatal(err)
	}
	collector := res.Returnval
	if collector.Type != "EventHistoryCollector" {
		t.Errorf("collector type %q", collector.Type)
	}
	if _, err := methods.SetCollectorPageSize(ctx, c, &types.SetCollectorPageSize{This: collector, MaxCount: 100}); err != nil {
		t.Fatal(err)
	}
	createFilter(t, c, types.PropertyFilterSpec{
		PropSet:   []types.PropertySpec{{Type: "EventHistoryCollector", All: types.NewBool(false), PathSet: []string{"latestPage"}}},
		ObjectSet: []types.ObjectSpec{{Obj: collector, Skip: types.NewBool(false)}},
	})
	w := newWatcher(t, c)

	page := func(what string) []types.BaseEvent {
		t.Helper()
		u := w.await(t, what, func(u types.ObjectUpdate) bool {
			_, ok := change(u, "latestPage")
			return u.Obj == collector && ok
		})
		v, _ := change(u, "latestPage")
		switch page := v.(type) {
		case types.ArrayOfEvent:
			return page.Event
		case *types.ArrayOfEvent:
			return page.Event
		}
		t.Fatalf("latestPage of type %T", v)
		return nil
	}

	var posted EventView
	mustCtl(t, "POST", "/events", map[string]string{"type": "VmBeingHotMigratedEvent", "vm": vm.Ref, "destHost": dst}, &posted)
	p := page("the hot migration")
	if len(p) != 1 {
		t.Fatalf("page of %d events, want 1 (the earlier event must stay out)", len(p))
	}
	hot, ok := p[0].(*types.VmBeingHotMigratedEvent)
	if !ok {
		t.Fatalf("event %T", p[0])
	}
	if hot.Key != posted.Key || hot.Vm.Vm.Value != vm.Ref || hot.Vm.Name != vm.Name || hot.Host.Host.Value != src || hot.DestHost.Host.Value != dst {
		t.Errorf("event %+v", hot)
	}
	if hot.Datacenter == nil || hot.ComputeResource == nil {
		t.Error("the event lacks datacenter or compute resource arguments")
	}

	// Events of other classes do not reach this collector.
	mustCtl(t, "POST", "/events", map[string]string{"type": "VmPoweredOffEvent", "vm": vm.Ref}, nil)
	mustCtl(t, "POST", "/events", map[string]string{"type": "DvsPortLinkUpEvent", "dvs": inv.Dvs[0].Ref, "portKey": vm.Nics[0].PortKey}, nil)
	if set := checkForUpdates(t, c, w.version); set != nil {
		t.Errorf("unwanted update: %+v", objectUpdates(set))
	}

	mustCtl(t, "POST", "/events", map[string]string{"type": "VmMigratedEvent", "vm": vm.Ref, "host": dst, "sourceHost": src}, nil)
	p = page("the migration")
	if len(p) != 2 {
		t.Fatalf("page of %d events", len(p))
	}
	done, ok := p[0].(*types.VmMigratedEvent)
	if !ok {
		t.Fatalf("newest first: got %T first", p[0])
	}
	if done.Host.Host.Value != dst || done.SourceHost.Host.Value != src {
		t.Errorf("migrated event hosts %v <- %v", done.Host.Host, done.SourceHost.Host)
	}

	mustCtl(t, "POST", "/events", map[string]string{"type": "DrsVmMigratedEvent", "vm": vm.Ref, "sourceHost": src}, nil)
	if _, ok := page("a DRS migration, a kind of VmMigratedEvent")[0].(*types.DrsVmMigratedEvent); !ok {
		t.Error("DrsVmMigratedEvent is not on the page")
	}
	mustCtl(t, "POST", "/events", map[string]string{"type": "VmFailedMigrateEvent", "vm": vm.Ref, "destHost": dst, "reason": "no space"}, nil)
	failed, ok := page("the failed migration")[0].(*types.VmFailedMigrateEvent)
	if !ok || failed.Reason.LocalizedMessage != "no space" || failed.DestHost.Host.Value != dst {
		t.Errorf("failed migration %+v", failed)
	}

	if _, err := methods.SetCollectorPageSize(ctx, c, &types.SetCollectorPageSize{This: collector, MaxCount: 2}); err != nil {
		t.Fatal(err)
	}
	if p := page("the shrunk page"); len(p) != 2 || p[0].GetEvent().Key <= p[1].GetEvent().Key {
		t.Errorf("shrunk page %d events", len(p))
	}

	t.Run("bad input", func(t *testing.T) {
		if code := ctl(t, "POST", "/events", map[string]string{"type": "NoSuchEvent"}, nil); code != http.StatusBadRequest {
			t.Errorf("unknown type: status %d", code)
		}
		if code := ctl(t, "POST", "/events", map[string]string{"type": "VmBeingHotMigratedEvent", "vm": vm.Ref}, nil); code != http.StatusBadRequest {
			t.Errorf("hot migration without destination: status %d", code)
		}
		_, err := methods.SetCollectorPageSize(ctx, c, &types.SetCollectorPageSize{This: collector, MaxCount: 5000})
		if _, detail := vimFault(t, err); reflectTypeName(detail) != "InvalidArgument" {
			t.Errorf("page size 5000: %T", detail)
		}
	})

	t.Run("the control interface lists the events", func(t *testing.T) {
		var evs []EventView
		mustCtl(t, "GET", fmt.Sprintf("/events?type=VmMigratedEvent&since=%d", posted.Key), nil, &evs)
		if len(evs) != 1 || evs[0].SourceHost == nil || evs[0].SourceHost.Ref.Value != src {
			t.Errorf("events %+v", evs)
		}
	})
}

// ---- user events and alarms ----

func TestUserEventsAndAlarms(t *testing.T) {
	reset(t)
	inv := inventory(t)
	c := login(t)
	ctx := context.Background()
	root := c.ServiceContent.RootFolder

	t.Run("LogUserEvent", func(t *testing.T) {
		if _, err := methods.LogUserEvent(ctx, c, &types.LogUserEvent{This: *c.ServiceContent.EventManager, Entity: root, Msg: "port Ethernet7 is down"}); err != nil {
			t.Fatal(err)
		}
		var got []UserEvent
		mustCtl(t, "GET", "/userevents", nil, &got)
		if len(got) != 1 || got[0].Msg != "port Ethernet7 is down" || got[0].Entity != (moRef{"Folder", root.Value}) || got[0].User != testUser {
			t.Fatalf("user events %+v", got)
		}
		var evs []EventView
		mustCtl(t, "GET", "/events?type=GeneralUserEvent", nil, &evs)
		last := evs[len(evs)-1]
		if last.Key != got[0].EventKey || last.Msg != "port Ethernet7 is down" || last.Entity == nil || last.Entity.Ref.Value != root.Value {
			t.Errorf("event %+v", last)
		}

		_, err := methods.LogUserEvent(ctx, c, &types.LogUserEvent{This: *c.ServiceContent.EventManager, Entity: types.ManagedObjectReference{Type: "HostSystem", Value: "host-0"}, Msg: "x"})
		if _, detail := vimFault(t, err); reflectTypeName(detail) != "ManagedObjectNotFound" {
			t.Errorf("missing entity: %T", detail)
		}
	})

	t.Run("CreateAlarm", func(t *testing.T) {
		host := types.ManagedObjectReference{Type: "HostSystem", Value: inv.Hosts[0].Ref}
		spec := &types.AlarmSpec{
			Name:        "Kestin-Alarm",
			Description: "link flap on Ethernet3",
			Enabled:     false,
			Expression:  &types.EventAlarmExpression{EventType: "KestinEvent", ObjectType: "HostSystem", Status: types.ManagedEntityStatusRed},
			Setting:     &types.AlarmSetting{ToleranceRange: 0, ReportingFrequency: 0},
		}
		res, err := methods.CreateAlarm(ctx, c, &types.CreateAlarm{This: *c.ServiceContent.AlarmManager, Entity: host, Spec: spec})
		if err != nil {
			t.Fatal(err)
		}
		if res.Returnval.Type != "Alarm" {
			t.Errorf("alarm reference %v", res.Returnval)
		}
		var alarms []AlarmRecord
		mustCtl(t, "GET", "/alarms", nil, &alarms)
		if len(alarms) != 1 || alarms[0].Name != "Kestin-Alarm" || alarms[0].Description != "link flap on Ethernet3" ||
			alarms[0].Entity.Value != host.Value || alarms[0].Alarm.Value != res.Returnval.Value || alarms[0].HasAction {
			t.Fatalf("alarms %+v", alarms)
		}
		if b, _ := json.Marshal(alarms[0].Expression); !strings.Contains(string(b), `"type":"EventAlarmExpression"`) || !strings.Contains(string(b), "KestinEvent") {
			t.Errorf("expression %s", b)
		}

		var a mo.Alarm
		pc := types.PropertyFilterSpec{
			PropSet:   []types.PropertySpec{{Type: "Alarm", PathSet: []string{"info"}}},
			ObjectSet: []types.ObjectSpec{{Obj: res.Returnval}},
		}
		props, err := methods.RetrieveProperties(ctx, c, &types.RetrieveProperties{This: c.ServiceContent.PropertyCollector, SpecSet: []types.PropertyFilterSpec{pc}})
		if err != nil || mo.LoadObjectContent(props.Returnval, &a) != nil || a.Info.Name != "Kestin-Alarm" || a.Info.Entity != host {
			t.Errorf("alarm object: %v %+v", err, a.Info)
		}

		_, err = methods.CreateAlarm(ctx, c, &types.CreateAlarm{This: *c.ServiceContent.AlarmManager, Entity: host, Spec: spec})
		if _, detail := vimFault(t, err); reflectTypeName(detail) != "DuplicateName" {
			t.Errorf("second alarm of the same name: %T", detail)
		}
	})
}

// ---- DV ports ----

func fetchPorts(t *testing.T, c *vim25.Client, dvs types.ManagedObjectReference, keys ...string) []types.DistributedVirtualPort {
	t.Helper()
	res, err := methods.FetchDVPorts(context.Background(), c, &types.FetchDVPorts{This: dvs, Criteria: &types.DistributedVirtualSwitchPortCriteria{
		Connected: types.NewBool(true),
		PortKey:   keys,
	}})
	if err != nil {
		t.Fatalf("FetchDVPorts: %v", err)
	}
	return res.Returnval
}

func TestDVPorts(t *testing.T) {
	reset(t)
	inv := inventory(t)
	c := login(t)
	ctx := context.Background()
	dvs := types.ManagedObjectReference{Type: dvsWireType, Value: inv.Dvs[0].Ref}
	vm, host := inv.Vms[0], inv.Hosts[0]
	vmKey := vm.Nics[0].PortKey
	var uplinkKey string
	for _, p := range host.Pnics {
		if p.Device == uplinkDevice {
			uplinkKey = p.UplinkPortKey
		}
	}

	t.Run("FetchDVPorts names connectee, state and counters", func(t *testing.T) {
		ports := fetchPorts(t, c, dvs, vmKey, uplinkKey)
		if len(ports) != 2 {
			t.Fatalf("%d ports", len(ports))
		}
		for _, p := range ports {
			if p.Connectee == nil || p.Connectee.ConnectedEntity == nil || p.State == nil || p.State.RuntimeInfo == nil {
				t.Fatalf("port %s incomplete: %+v", p.Key, p)
			}
			if p.DvsUuid != inv.Dvs[0].Uuid || p.State.RuntimeInfo.Mtu != 1500 || !p.State.RuntimeInfo.LinkUp {
				t.Errorf("port %s: %+v", p.Key, p.State.RuntimeInfo)
			}
			if p.Config.Setting.GetDVPortSetting().Blocked != nil {
				t.Errorf("port %s has a blocked policy nobody set", p.Key)
			}
			switch p.Key {
			case vmKey:
				if p.Connectee.Type != "vmVnic" || p.Connectee.ConnectedEntity.Value != vm.Ref || p.Connectee.NicKey != fmt.Sprint(vm.Nics[0].Key) || p.ProxyHost.Value != vm.Host {
					t.Errorf("machine port %+v", p.Connectee)
				}
			case uplinkKey:
				if p.Connectee.Type != "pnic" || p.Connectee.ConnectedEntity.Value != host.Ref || p.Connectee.NicKey != uplinkDevice {
					t.Errorf("uplink port %+v", p.Connectee)
				}
			}
		}
		if all := fetchPorts(t, c, dvs); len(all) != len(inv.Vms)+len(inv.Hosts) {
			t.Errorf("all ports: %d, want one per machine and host", len(all))
		}
	})

	t.Run("connectee changed through the control interface", func(t *testing.T) {
		var view PortView
		mustCtl(t, "POST", "/ports/connectee", map[string]interface{}{"dvs": dvs.Value, "key": uplinkKey, "type": "hostVmkVnic", "nicKey": "vmk1"}, &view)
		if view.ConnecteeType != "hostVmkVnic" || view.NicKey != "vmk1" || view.Entity.Value != host.Ref {
			t.Errorf("view %+v", view)
		}
		p := fetchPorts(t, c, dvs, uplinkKey)[0]
		if p.Connectee.Type != "hostVmkVnic" || p.Connectee.NicKey != "vmk1" || p.Connectee.ConnectedEntity.Value != host.Ref || p.ProxyHost.Value != host.Ref {
			t.Errorf("changed port %+v", p.Connectee)
		}
		mustCtl(t, "POST", "/ports/connectee", map[string]interface{}{"dvs": dvs.Value, "key": vmKey, "entity": "vm-1", "proxyHost": host.Ref}, nil)
		p = fetchPorts(t, c, dvs, vmKey)[0]
		if p.Connectee.Type != "vmVnic" || p.Connectee.ConnectedEntity.Type != "VirtualMachine" || p.Connectee.ConnectedEntity.Value != "vm-1" || p.ProxyHost.Value != host.Ref {
			t.Errorf("changed machine port %+v", p.Connectee)
		}
		for _, key := range []string{uplinkKey, vmKey} {
			mustCtl(t, "POST", "/ports/connectee", map[string]interface{}{"dvs": dvs.Value, "key": key, "clear": true}, nil)
		}
		if p := fetchPorts(t, c, dvs, uplinkKey)[0]; p.Connectee.Type != "pnic" || p.Connectee.NicKey != uplinkDevice {
			t.Errorf("cleared port %+v", p.Connectee)
		}
		if code := ctl(t, "POST", "/ports/connectee", map[string]interface{}{"dvs": dvs.Value, "key": "9999"}, nil); code != 404 {
			t.Errorf("unknown port: %d", code)
		}
	})

	t.Run("port state set through the control interface", func(t *testing.T) {
		stats := PortStats{PacketsInUnicast: 11, PacketsOutMulticast: 22, BytesInBroadcast: 33, PacketsOutDropped: 44}
		mustCtl(t, "POST", "/ports", map[string]interface{}{"dvs": dvs.Value, "key": vmKey, "linkUp": false, "mtu": 9000, "stats": stats}, nil)
		p := fetchPorts(t, c, dvs, vmKey)[0]
		got := p.State.Stats
		if got.PacketsInUnicast != 11 || got.PacketsOutMulticast != 22 || got.BytesInBroadcast != 33 || got.PacketsOutDropped != 44 {
			t.Errorf("stats %+v", got)
		}
		if p.State.RuntimeInfo.LinkUp || p.State.RuntimeInfo.Mtu != 9000 {
			t.Errorf("runtime %+v", p.State.RuntimeInfo)
		}
		active, err := methods.FetchDVPorts(ctx, c, &types.FetchDVPorts{This: dvs, Criteria: &types.DistributedVirtualSwitchPortCriteria{Active: types.NewBool(true), PortKey: []string{vmKey}}})
		if err != nil || len(active.Returnval) != 0 {
			t.Errorf("a port with link down counts as active: %v", err)
		}
		mustCtl(t, "POST", "/ports", map[string]interface{}{"dvs": dvs.Value, "key": vmKey, "omitState": true, "omitConnectee": true}, nil)
		if p := fetchPorts(t, c, dvs, vmKey)[0]; p.State != nil || p.Connectee != nil {
			t.Errorf("omitted parts are there: %+v", p)
		}
		if code := ctl(t, "POST", "/ports", map[string]interface{}{"dvs": dvs.Value, "key": "99999"}, nil); code != http.StatusNotFound {
			t.Errorf("unknown port: status %d", code)
		}
	})

	t.Run("ReconfigureDVPort_Task blocks and is recorded", func(t *testing.T) {
		reset(t)
		spec := types.DVPortConfigSpec{Operation: "edit", Key: vmKey, Setting: &types.DVPortSetting{
			Blocked: &types.BoolPolicy{InheritablePolicy: types.InheritablePolicy{Inherited: false}, Value: types.NewBool(true)},
		}}
		res, err := methods.ReconfigureDVPort_Task(ctx, c, &types.ReconfigureDVPort_Task{This: dvs, Port: []types.DVPortConfigSpec{spec}})
		if err != nil {
			t.Fatal(err)
		}
		if res.Returnval.Type != "Task" {
			t.Errorf("returned %v", res.Returnval)
		}
		var recs []PortReconfig
		mustCtl(t, "GET", "/portreconfigs", nil, &recs)
		if len(recs) != 1 {
			t.Fatalf("%d records", len(recs))
		}
		r := recs[0]
		if r.Dvs != (moRef{dvsWireType, dvs.Value}) || !r.Found || r.Fault != "" || len(r.Ports) != 1 ||
			r.Ports[0].Key != vmKey || r.Ports[0].Operation != "edit" || r.Ports[0].Blocked == nil ||
			*r.Ports[0].Blocked.Value != true || *r.Ports[0].Blocked.Inherited != false {
			t.Errorf("record %+v", r)
		}
		p := fetchPorts(t, c, dvs, vmKey)[0]
		b := p.Config.Setting.GetDVPortSetting().Blocked
		if b == nil || b.Value == nil || !*b.Value || !p.State.RuntimeInfo.Blocked {
			t.Errorf("port after blocking: %+v %+v", b, p.State.RuntimeInfo)
		}

		// unblock: the policy stays, with value false
		*spec.Setting.GetDVPortSetting().Blocked.Value = false
		if _, err := methods.ReconfigureDVPort_Task(ctx, c, &types.ReconfigureDVPort_Task{This: dvs, Port: []types.DVPortConfigSpec{spec}}); err != nil {
			t.Fatal(err)
		}
		p = fetchPorts(t, c, dvs, vmKey)[0]
		if b := p.Config.Setting.GetDVPortSetting().Blocked; b == nil || b.Value == nil || *b.Value || p.State.RuntimeInfo.Blocked {
			t.Errorf("port after unblocking: %+v", b)
		}
	})

	t.Run("an empty _this is refused as vCenter does, and recorded", func(t *testing.T) {
		reset(t)
		empty := types.ManagedObjectReference{}
		spec := types.DVPortConfigSpec{Operation: "edit", Key: vmKey, Setting: &types.DVPortSetting{Blocked: &types.BoolPolicy{Value: types.NewBool(true)}}}
		_, err := methods.ReconfigureDVPort_Task(ctx, c, &types.ReconfigureDVPort_Task{This: empty, Port: []types.DVPortConfigSpec{spec}})
		if _, detail := vimFault(t, err); reflectTypeName(detail) != "ManagedObjectNotFound" {
			t.Errorf("ReconfigureDVPort_Task: %T", detail)
		}
		_, err = methods.FetchDVPorts(ctx, c, &types.FetchDVPorts{This: empty})
		if _, detail := vimFault(t, err); reflectTypeName(detail) != "ManagedObjectNotFound" {
			t.Errorf("FetchDVPorts: %T", detail)
		}
		var recs []PortReconfig
		mustCtl(t, "GET", "/portreconfigs", nil, &recs)
		if len(recs) != 1 || recs[0].Found || recs[0].Dvs.Value != "" || recs[0].Fault == "" || recs[0].Ports[0].Key != vmKey {
			t.Errorf("records %+v", recs)
		}

		mustCtl(t, "POST", "/options", map[string]string{"emptyDvsRef": dvs.Value}, nil)
		if _, err := methods.ReconfigureDVPort_Task(ctx, c, &types.ReconfigureDVPort_Task{This: empty, Port: []types.DVPortConfigSpec{spec}}); err != nil {
			t.Errorf("with emptyDvsRef: %v", err)
		}
		if ports := fetchPorts(t, c, empty, vmKey); len(ports) != 1 {
			t.Errorf("FetchDVPorts with emptyDvsRef: %d ports", len(ports))
		}
		if code := ctl(t, "POST", "/options", map[string]string{"emptyDvsRef": "dvs-0"}, nil); code != http.StatusNotFound {
			t.Errorf("unknown switch as emptyDvsRef: status %d", code)
		}
	})

	t.Run("inheritedBlocked reports the policy of untouched ports", func(t *testing.T) {
		reset(t)
		mustCtl(t, "POST", "/options", map[string]bool{"inheritedBlocked": true}, nil)
		b := fetchPorts(t, c, dvs, vmKey)[0].Config.Setting.GetDVPortSetting().Blocked
		if b == nil || !b.Inherited || b.Value == nil || *b.Value {
			t.Errorf("blocked policy %+v", b)
		}
		reset(t)
	})

	t.Run("RefreshDVPortState", func(t *testing.T) {
		reset(t)
		if _, err := methods.RefreshDVPortState(ctx, c, &types.RefreshDVPortState{This: dvs, PortKeys: []string{vmKey, uplinkKey}}); err != nil {
			t.Fatal(err)
		}
		var recs []PortRefresh
		mustCtl(t, "GET", "/portrefreshes", nil, &recs)
		if len(recs) != 1 || !recs[0].Found || strings.Join(recs[0].PortKeys, ",") != vmKey+","+uplinkKey {
			t.Errorf("records %+v", recs)
		}
	})

	t.Run("a gSOAP-style request", func(t *testing.T) {
		reset(t)
		// Prefixed elements, the switch's vCenter type in _this, and a
		// setting of the base type without xsi:type.
		cookie := rawLogin(t)
		res, out := rawSOAP(t, `<?xml version="1.0" encoding="UTF-8"?>`+
			`<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:ns2="urn:vim25"><SOAP-ENV:Body>`+
			`<ns2:ReconfigureDVPort_Task><ns2:_this type="VmwareDistributedVirtualSwitch">`+dvs.Value+`</ns2:_this>`+
			`<ns2:port><ns2:operation>edit</ns2:operation><ns2:key>`+vmKey+`</ns2:key>`+
			`<ns2:setting><ns2:blocked><ns2:inherited>false</ns2:inherited><ns2:value>true</ns2:value></ns2:blocked></ns2:setting>`+
			`</ns2:port></ns2:ReconfigureDVPort_Task></SOAP-ENV:Body></SOAP-ENV:Envelope>`, cookie)
		if res.StatusCode != http.StatusOK || !strings.Contains(out, "ReconfigureDVPort_TaskResponse") {
			t.Fatalf("status %d: %s", res.StatusCode, out)
		}
		var recs []PortReconfig
		mustCtl(t, "GET", "/portreconfigs", nil, &recs)
		if len(recs) != 1 || !recs[0].Found || recs[0].Dvs.Type != dvsWireType || recs[0].Ports[0].Blocked == nil || !*recs[0].Ports[0].Blocked.Value {
			t.Errorf("records %+v", recs)
		}
	})
}

// gsoapEnvelope wraps a body as libHarbec's gSOAP stubs do: prefixed
// elements in urn:vim25, derived types with a prefixed xsi:type.
func gsoapEnvelope(body string) string {
	return `<?xml version="1.0" encoding="UTF-8"?>` +
		`<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" xmlns:SOAP-ENC="http://schemas.xmlsoap.org/soap/encoding/" ` +
		`xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:xsd="http://www.w3.org/2001/XMLSchema" xmlns:ns2="urn:vim25">` +
		`<SOAP-ENV:Body>` + body + `</SOAP-ENV:Body></SOAP-ENV:Envelope>`
}

func TestGsoapStyleRequests(t *testing.T) {
	reset(t)
	inv := inventory(t)
	cookie := rawLogin(t)
	call := func(t *testing.T, body string) (int, string) {
		t.Helper()
		res, out := rawSOAP(t, gsoapEnvelope(body), cookie)
		return res.StatusCode, out
	}

	t.Run("property filter with prefixed traversal types", func(t *testing.T) {
		code, out := call(t, `<ns2:CreateFilter><ns2:_this type="PropertyCollector">propertyCollector</ns2:_this><ns2:spec>`+
			`<ns2:propSet><ns2:type>VmwareDistributedVirtualSwitch</ns2:type><ns2:all>false</ns2:all><ns2:pathSet>name</ns2:pathSet><ns2:pathSet>uuid</ns2:pathSet></ns2:propSet>`+
			`<ns2:propSet><ns2:type>HostSystem</ns2:type><ns2:all>false</ns2:all><ns2:pathSet>name</ns2:pathSet></ns2:propSet>`+
			`<ns2:objectSet><ns2:obj type="Folder">`+inv.RootFolder+`</ns2:obj><ns2:skip>false</ns2:skip>`+
			`<ns2:selectSet xsi:type="ns2:TraversalSpec"><ns2:name>folderTravSpec</ns2:name><ns2:type>Folder</ns2:type><ns2:path>childEntity</ns2:path><ns2:skip>false</ns2:skip>`+
			`<ns2:selectSet><ns2:name>dcNwFolderTravSpec</ns2:name></ns2:selectSet><ns2:selectSet><ns2:name>dcHostTravSpec</ns2:name></ns2:selectSet>`+
			`<ns2:selectSet><ns2:name>folderTravSpec</ns2:name></ns2:selectSet><ns2:selectSet><ns2:name>compResHostTravSpec</ns2:name></ns2:selectSet></ns2:selectSet>`+
			`<ns2:selectSet xsi:type="ns2:TraversalSpec"><ns2:name>dcNwFolderTravSpec</ns2:name><ns2:type>Datacenter</ns2:type><ns2:path>networkFolder</ns2:path><ns2:skip>false</ns2:skip>`+
			`<ns2:selectSet><ns2:name>folderTravSpec</ns2:name></ns2:selectSet></ns2:selectSet>`+
			`<ns2:selectSet xsi:type="ns2:TraversalSpec"><ns2:name>dcHostTravSpec</ns2:name><ns2:type>Datacenter</ns2:type><ns2:path>hostFolder</ns2:path><ns2:skip>false</ns2:skip>`+
			`<ns2:selectSet><ns2:name>folderTravSpec</ns2:name></ns2:selectSet></ns2:selectSet>`+
			`<ns2:selectSet xsi:type="ns2:TraversalSpec"><ns2:name>compResHostTravSpec</ns2:name><ns2:type>ComputeResource</ns2:type><ns2:path>host</ns2:path><ns2:skip>false</ns2:skip></ns2:selectSet>`+
			`<ns2:selectSet xsi:type="ns2:TraversalSpec"><ns2:name>clusterCompResHostTravSpec</ns2:name><ns2:type>ClusterComputeResource</ns2:type><ns2:path>host</ns2:path><ns2:skip>false</ns2:skip></ns2:selectSet>`+
			`</ns2:objectSet></ns2:spec><ns2:partialUpdates>false</ns2:partialUpdates></ns2:CreateFilter>`)
		if code != http.StatusOK || !strings.Contains(out, `type="PropertyFilter"`) {
			t.Fatalf("CreateFilter: %d %s", code, out)
		}
		code, out = call(t, `<ns2:CheckForUpdates><ns2:_this type="PropertyCollector">propertyCollector</ns2:_this><ns2:version></ns2:version></ns2:CheckForUpdates>`)
		if code != http.StatusOK {
			t.Fatalf("CheckForUpdates: %d %s", code, out)
		}
		if n := strings.Count(out, `<obj type="HostSystem">`); n != len(inv.Hosts) {
			t.Errorf("%d hosts in the update set, want %d", n, len(inv.Hosts))
		}
		if !strings.Contains(out, `<obj type="VmwareDistributedVirtualSwitch">`+inv.Dvs[0].Ref+`</obj>`) || !strings.Contains(out, "<version>1</version>") {
			t.Errorf("update set: %s", out)
		}
		code, out = call(t, `<ns2:CheckForUpdates><ns2:_this type="PropertyCollector">propertyCollector</ns2:_this><ns2:version>1</ns2:version></ns2:CheckForUpdates>`)
		if code != http.StatusOK || strings.Contains(out, "returnval") {
			t.Errorf("CheckForUpdates without changes: %d %s", code, out)
		}
	})

	t.Run("event collector filter", func(t *testing.T) {
		begin := time.Now().UTC().Add(-time.Hour).Format("2006-01-02T15:04:05Z")
		code, out := call(t, `<ns2:CreateCollectorForEvents><ns2:_this type="EventManager">EventManager</ns2:_this><ns2:filter>`+
			`<ns2:entity><ns2:entity type="Folder">`+inv.RootFolder+`</ns2:entity><ns2:recursion>self</ns2:recursion></ns2:entity>`+
			`<ns2:time><ns2:beginTime>`+begin+`</ns2:beginTime></ns2:time>`+
			`<ns2:type>VmMigratedEvent</ns2:type><ns2:type>VmBeingHotMigratedEvent</ns2:type><ns2:type>VmFailedMigrateEvent</ns2:type>`+
			`</ns2:filter></ns2:CreateCollectorForEvents>`)
		m := regexp.MustCompile(`<returnval type="EventHistoryCollector">([^<]+)</returnval>`).FindStringSubmatch(out)
		if code != http.StatusOK || m == nil {
			t.Fatalf("CreateCollectorForEvents: %d %s", code, out)
		}
		code, out = call(t, `<ns2:SetCollectorPageSize><ns2:_this type="EventHistoryCollector">`+m[1]+`</ns2:_this><ns2:maxCount>100</ns2:maxCount></ns2:SetCollectorPageSize>`)
		if code != http.StatusOK {
			t.Fatalf("SetCollectorPageSize: %d %s", code, out)
		}
		code, out = call(t, `<ns2:RetrieveProperties><ns2:_this type="PropertyCollector">propertyCollector</ns2:_this><ns2:specSet>`+
			`<ns2:propSet><ns2:type>EventHistoryCollector</ns2:type><ns2:all>false</ns2:all><ns2:pathSet>latestPage</ns2:pathSet></ns2:propSet>`+
			`<ns2:objectSet><ns2:obj type="EventHistoryCollector">`+m[1]+`</ns2:obj><ns2:skip>false</ns2:skip></ns2:objectSet></ns2:specSet></ns2:RetrieveProperties>`)
		if code != http.StatusOK {
			t.Fatalf("RetrieveProperties: %d %s", code, out)
		}
		// The earlier tests posted migration events within the hour, and
		// other events that must stay out.
		if !strings.Contains(out, `<val xsi:type="ArrayOfEvent">`) || !strings.Contains(out, `<Event xsi:type="VmMigratedEvent">`) ||
			strings.Contains(out, `"VmPoweredOffEvent"`) || strings.Contains(out, `"GeneralUserEvent"`) || strings.Contains(out, "XMLSchema-instance:") {
			t.Errorf("latest page: %s", out)
		}
	})

	t.Run("a reference without value", func(t *testing.T) {
		code, out := call(t, `<ns2:FetchDVPorts><ns2:_this></ns2:_this><ns2:criteria><ns2:connected>true</ns2:connected><ns2:portKey>1</ns2:portKey></ns2:criteria></ns2:FetchDVPorts>`)
		if code != http.StatusInternalServerError || !strings.Contains(out, "ManagedObjectNotFound") {
			t.Errorf("FetchDVPorts: %d %s", code, out)
		}
		code, out = call(t, `<ns2:RefreshDVPortState><ns2:_this/><ns2:portKeys>1</ns2:portKeys></ns2:RefreshDVPortState>`)
		if code != http.StatusInternalServerError || !strings.Contains(out, "ManagedObjectNotFound") {
			t.Errorf("RefreshDVPortState: %d %s", code, out)
		}
	})

	t.Run("user event and alarm", func(t *testing.T) {
		code, out := call(t, `<ns2:LogUserEvent><ns2:_this type="EventManager">EventManager</ns2:_this><ns2:entity type="Folder">`+inv.RootFolder+`</ns2:entity><ns2:msg>gsoap says hi</ns2:msg></ns2:LogUserEvent>`)
		if code != http.StatusOK || !strings.Contains(out, "LogUserEventResponse") {
			t.Errorf("LogUserEvent: %d %s", code, out)
		}
		code, out = call(t, `<ns2:CreateAlarm><ns2:_this type="AlarmManager">AlarmManager</ns2:_this><ns2:entity type="HostSystem">`+inv.Hosts[2].Ref+`</ns2:entity>`+
			`<ns2:spec><ns2:name>Kestin-Alarm</ns2:name><ns2:description>from gSOAP</ns2:description><ns2:enabled>false</ns2:enabled>`+
			`<ns2:expression xsi:type="ns2:EventAlarmExpression"><ns2:eventType>KestinEvent</ns2:eventType><ns2:objectType>HostSystem</ns2:objectType><ns2:status>red</ns2:status></ns2:expression>`+
			`<ns2:setting><ns2:toleranceRange>0</ns2:toleranceRange><ns2:reportingFrequency>0</ns2:reportingFrequency></ns2:setting></ns2:spec></ns2:CreateAlarm>`)
		if code != http.StatusOK || !strings.Contains(out, `<returnval type="Alarm">`) {
			t.Errorf("CreateAlarm: %d %s", code, out)
		}
		var alarms []AlarmRecord
		mustCtl(t, "GET", "/alarms", nil, &alarms)
		if len(alarms) != 1 || alarms[0].Description != "from gSOAP" || alarms[0].Entity.Value != inv.Hosts[2].Ref {
			t.Errorf("alarms %+v", alarms)
		}
	})
}

// ---- network hints ----

func TestQueryNetworkHint(t *testing.T) {
	reset(t)
	inv := inventory(t)
	c := login(t)
	host := inv.Hosts[1]
	mustCtl(t, "POST", "/hints", NicHint{Host: host.Ref, Device: "vmnic0", Cdp: &CdpHint{DevId: "00:1c:73:aa:bb:cc", PortId: "Ethernet5", MgmtAddr: "10.1.1.1", SystemName: "leaf1"}}, nil)
	mustCtl(t, "POST", "/hints", NicHint{Host: host.Ref, Device: "vmnic1", Lldp: &LldpHint{ChassisId: "00:1c:73:aa:bb:cc", PortId: "Ethernet6",
		Parameters: map[string]string{"Management Address": "10.1.1.1", "System Name": "leaf1"}}}, nil)

	res, err := methods.QueryNetworkHint(context.Background(), c, &types.QueryNetworkHint{This: types.ManagedObjectReference{Type: "HostNetworkSystem", Value: host.NetworkSystem}})
	if err != nil {
		t.Fatal(err)
	}
	hints := map[string]types.PhysicalNicHintInfo{}
	for _, h := range res.Returnval {
		hints[h.Device] = h
	}
	if len(hints) != len(host.Pnics) {
		t.Fatalf("%d hints for %d NICs", len(hints), len(host.Pnics))
	}
	cdp := hints["vmnic0"].ConnectedSwitchPort
	if cdp == nil || cdp.DevId != "00:1c:73:aa:bb:cc" || cdp.PortId != "Ethernet5" || cdp.MgmtAddr != "10.1.1.1" || cdp.SystemName != "leaf1" || hints["vmnic0"].LldpInfo != nil {
		t.Errorf("vmnic0: %+v", hints["vmnic0"])
	}
	lldp := hints["vmnic1"].LldpInfo
	if lldp == nil || lldp.PortId != "Ethernet6" || len(lldp.Parameter) != 2 || hints["vmnic1"].ConnectedSwitchPort != nil {
		t.Fatalf("vmnic1: %+v", hints["vmnic1"])
	}
	for _, p := range lldp.Parameter {
		if (p.Key == "System Name" && p.Value != "leaf1") || (p.Key == "Management Address" && p.Value != "10.1.1.1") {
			t.Errorf("parameter %+v", p)
		}
	}

	// The hints of another host stay empty.
	other, err := methods.QueryNetworkHint(context.Background(), c, &types.QueryNetworkHint{This: types.ManagedObjectReference{Type: "HostNetworkSystem", Value: inv.Hosts[0].NetworkSystem}})
	if err != nil {
		t.Fatal(err)
	}
	for _, h := range other.Returnval {
		if h.ConnectedSwitchPort != nil || h.LldpInfo != nil {
			t.Errorf("other host %s: %+v", h.Device, h)
		}
	}
}

// ---- fault injection ----

func TestFaultInjection(t *testing.T) {
	reset(t)
	c := login(t)

	addRule := func(t *testing.T, rule map[string]interface{}) FaultRule {
		t.Helper()
		var r FaultRule
		mustCtl(t, "POST", "/faults", rule, &r)
		return r
	}

	t.Run("SOAP fault once", func(t *testing.T) {
		reset(t)
		addRule(t, map[string]interface{}{"method": "CurrentTime", "kind": "fault", "faultString": "Try Again"})
		msg, detail := vimFault(t, currentTime(c))
		if msg != "Try Again" || reflectTypeName(detail) != "SystemError" {
			t.Errorf("fault %q %T", msg, detail)
		}
		if err := currentTime(c); err != nil {
			t.Errorf("second call: %v", err)
		}
		var calls []Call
		mustCtl(t, "GET", "/calls?method=CurrentTime", nil, &calls)
		if len(calls) != 2 || calls[0].Outcome != "injected-fault" || calls[0].Fault != "Try Again" || calls[1].Outcome != "ok" || calls[0].User != testUser {
			t.Errorf("calls %+v", calls)
		}
	})

	t.Run("after and count", func(t *testing.T) {
		reset(t)
		addRule(t, map[string]interface{}{"method": "CurrentTime", "kind": "fault", "faultString": "busy", "faultType": "InvalidState", "count": 2, "after": 1})
		var got []bool
		for i := 0; i < 4; i++ {
			err := currentTime(c)
			got = append(got, err == nil)
			if err != nil {
				if _, detail := vimFault(t, err); reflectTypeName(detail) != "InvalidState" {
					t.Errorf("detail %T", detail)
				}
			}
		}
		if fmt.Sprint(got) != "[true false false true]" {
			t.Errorf("successes %v", got)
		}
		var rules []FaultRule
		mustCtl(t, "GET", "/faults", nil, &rules)
		if len(rules) != 0 {
			t.Errorf("spent rule still listed: %+v", rules)
		}
		if code := ctl(t, "POST", "/faults", map[string]interface{}{"method": "CurrentTime", "kind": "fault", "faultType": "NoSuchFault"}, nil); code != http.StatusBadRequest {
			t.Errorf("unknown fault type: status %d", code)
		}
	})

	t.Run("limited to one _this", func(t *testing.T) {
		reset(t)
		inv := inventory(t)
		addRule(t, map[string]interface{}{"method": "QueryNetworkHint", "kind": "fault", "faultString": "host down", "this": inv.Hosts[0].NetworkSystem, "count": 0})
		query := func(h HostView) error {
			_, err := methods.QueryNetworkHint(context.Background(), c, &types.QueryNetworkHint{This: types.ManagedObjectReference{Type: "HostNetworkSystem", Value: h.NetworkSystem}})
			return err
		}
		for i := 0; i < 2; i++ {
			if msg, _ := vimFault(t, query(inv.Hosts[0])); msg != "host down" {
				t.Errorf("fault %q", msg)
			}
		}
		if err := query(inv.Hosts[1]); err != nil {
			t.Errorf("other host: %v", err)
		}
	})

	t.Run("drop the connection", func(t *testing.T) {
		for _, reset := range []bool{false, true} {
			addRule(t, map[string]interface{}{"method": "CurrentTime", "kind": "drop", "reset": reset})
			err := currentTime(c)
			if err == nil || soap.IsSoapFault(err) {
				t.Errorf("reset %v: want a transport error, got %v", reset, err)
			}
			if err := currentTime(c); err != nil {
				t.Errorf("reset %v: call after the drop: %v", reset, err)
			}
		}
		var calls []Call
		mustCtl(t, "GET", "/calls?method=CurrentTime", nil, &calls)
		dropped := 0
		for _, c := range calls {
			if c.Outcome == "dropped" {
				dropped++
			}
		}
		if dropped != 2 {
			t.Errorf("%d dropped calls logged", dropped)
		}
	})

	t.Run("hold the reply until cleared", func(t *testing.T) {
		reset(t)
		rule := addRule(t, map[string]interface{}{"method": "CurrentTime", "kind": "hang"})
		done := make(chan error, 1)
		go func() { done <- currentTime(c) }()
		select {
		case err := <-done:
			t.Fatalf("held call returned: %v", err)
		case <-time.After(300 * time.Millisecond):
		}
		var rules []FaultRule
		mustCtl(t, "GET", "/faults", nil, &rules)
		if len(rules) != 0 {
			t.Errorf("a spent hang rule is listed: %+v", rules)
		}
		var calls []Call
		mustCtl(t, "GET", "/calls?method=CurrentTime", nil, &calls)
		if len(calls) != 1 || calls[0].Outcome != "held" {
			t.Errorf("calls %+v", calls)
		}
		if code := ctl(t, "DELETE", fmt.Sprintf("/faults?id=%d", rule.ID), nil, nil); code != http.StatusOK {
			t.Errorf("clearing the rule: status %d", code)
		}
		select {
		case err := <-done:
			if err != nil {
				t.Errorf("released call: %v", err)
			}
		case <-time.After(5 * time.Second):
			t.Fatal("the call stayed held after the rule was cleared")
		}
	})
}

// Replies spoilt or replaced on command, as a raw client sees them: the
// status, how much of the body came, whether it parses, and how long it took.
func TestSpoiltReplies(t *testing.T) {
	reset(t)
	cookie := rawLogin(t)
	currentTime := `<?xml version="1.0" encoding="UTF-8"?><SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" xmlns:ns2="urn:vim25"><SOAP-ENV:Body>` +
		`<ns2:CurrentTime><ns2:_this type="ServiceInstance">ServiceInstance</ns2:_this></ns2:CurrentTime></SOAP-ENV:Body></SOAP-ENV:Envelope>`
	_, whole := rawSOAP(t, currentTime, cookie)
	// The time in a reply may be a digit or two longer or shorter than in
	// the one measured here.
	about := func(n, want int) bool { return n >= want-4 && n <= want+4 }
	cases := []struct {
		rule     map[string]interface{}
		status   int
		parses   bool
		contains string
		bytes    func(n int) bool
		slow     bool
	}{
		{map[string]interface{}{"kind": "truncate"}, 200, false, "", func(n int) bool { return about(n, len(whole)/2) }, false},
		{map[string]interface{}{"kind": "corrupt"}, 200, false, "<#", func(n int) bool { return about(n, len(whole)) }, false},
		{map[string]interface{}{"kind": "wrongShape"}, 200, true, "UnexpectedResponse", nil, false},
		{map[string]interface{}{"kind": "replace", "body": "<CurrentTimeResponse xmlns=\"urn:vim25\"/>"}, 200, true, `xmlns="urn:vim25"/>`, nil, false},
		{map[string]interface{}{"kind": "status", "status": 503}, 503, true, "Service Unavailable", nil, false},
		{map[string]interface{}{"kind": "huge", "bytes": 3 << 20}, 200, true, "returnval", func(n int) bool { return about(n, len(whole)+3<<20) }, false},
		{map[string]interface{}{"kind": "trickle", "bytesPerSecond": 200}, 200, true, "returnval", func(n int) bool { return about(n, len(whole)) }, true},
	}
	for _, c := range cases {
		c.rule["method"] = "CurrentTime"
		mustCtl(t, "POST", "/faults", c.rule, nil)
		start := time.Now()
		res, body := rawSOAP(t, currentTime, cookie)
		took := time.Since(start)
		name := c.rule["kind"]
		if res.StatusCode != c.status || !strings.Contains(body, c.contains) {
			t.Errorf("%v: status %d body %.200q", name, res.StatusCode, body)
		}
		if c.bytes != nil && !c.bytes(len(body)) {
			t.Errorf("%v: %d bytes, whole reply %d", name, len(body), len(whole))
		}
		if parses := xml.Unmarshal([]byte(body), new(struct{})) == nil; parses != c.parses {
			t.Errorf("%v: parses %v", name, parses)
		}
		if c.slow != (took > time.Duration(len(whole))*time.Second/400) {
			t.Errorf("%v: took %v", name, took)
		}
	}

	// Half the reply, then the connection closes: the client sees an error.
	mustCtl(t, "POST", "/faults", map[string]interface{}{"method": "CurrentTime", "kind": "dropMidReply"}, nil)
	client := &http.Client{Transport: &http.Transport{TLSClientConfig: &tls.Config{InsecureSkipVerify: true}}}
	req, _ := http.NewRequest("POST", sim.url, strings.NewReader(currentTime))
	req.AddCookie(cookie)
	res, err := client.Do(req)
	if err == nil {
		b, readErr := io.ReadAll(res.Body)
		res.Body.Close()
		if readErr == nil || !about(len(b), len(whole)/2) {
			t.Errorf("dropMidReply: read %d bytes, error %v", len(b), readErr)
		}
	}
}

// ---- pieces without the server ----

func TestWireTypeTranslation(t *testing.T) {
	in := `<_this type="VmwareDistributedVirtualSwitch">dvs-9</_this><ns2:type>VmwareDistributedVirtualSwitch</ns2:type>` +
		`<type>VmwareDistributedVirtualSwitch</type><backing xsi:type="DistributedVirtualSwitchHostMemberPnicBacking"/>`
	want := `<_this type="DistributedVirtualSwitch">dvs-9</_this><ns2:type>DistributedVirtualSwitch</ns2:type>` +
		`<type>DistributedVirtualSwitch</type><backing xsi:type="DistributedVirtualSwitchHostMemberPnicBacking"/>`
	if got := string(toInternalTypes([]byte(in))); got != want {
		t.Errorf("inbound:\n got %s\nwant %s", got, want)
	}
	out := `<obj type="DistributedVirtualSwitch">dvs-9</obj><val xsi:type="DistributedVirtualSwitchPortConnection"/><obj type="DistributedVirtualSwitchX">x</obj>`
	wantOut := `<obj type="VmwareDistributedVirtualSwitch">dvs-9</obj><val xsi:type="DistributedVirtualSwitchPortConnection"/><obj type="DistributedVirtualSwitchX">x</obj>`
	if got := string(toWireTypes([]byte(out))); got != wantOut {
		t.Errorf("outbound:\n got %s\nwant %s", got, wantOut)
	}
}

func TestEventTypeMatching(t *testing.T) {
	cases := []struct {
		event types.BaseEvent
		names []string
		want  bool
	}{
		{&types.VmMigratedEvent{}, []string{"VmMigratedEvent"}, true},
		{&types.DrsVmMigratedEvent{}, []string{"VmMigratedEvent"}, true},
		{&types.VmMigratedEvent{}, []string{"DrsVmMigratedEvent"}, false},
		{&types.VmBeingHotMigratedEvent{}, []string{"VmEvent"}, true},
		{&types.VmPoweredOffEvent{}, []string{"VmMigratedEvent", "VmBeingHotMigratedEvent", "VmFailedMigrateEvent"}, false},
		{&types.DvsPortLinkUpEvent{}, []string{"VmMigratedEvent"}, false},
	}
	for _, c := range cases {
		if got := eventIsOfType(c.event, c.names); got != c.want {
			t.Errorf("%T in %v: %v", c.event, c.names, got)
		}
	}
}

// ---- shutdown; keep this test last ----

func facts(t *testing.T) map[string]bool {
	t.Helper()
	var list []map[string]string
	mustCtl(t, "GET", "/inventory/facts", nil, &list)
	out := map[string]bool{}
	for _, f := range list {
		out[f["fact"]] = true
	}
	return out
}

// The routes of the sync tests: a NIC comes with its hardware in one
// record and goes, VLAN policies change, a card moves between networks;
// the facts follow.
func TestSyncRoutes(t *testing.T) {
	reset(t)
	inv := inventory(t)
	c := login(t)
	createFilter(t, c, libraryFilterSpec(c.ServiceContent.RootFolder))
	w := newWatcher(t, c)
	host := inv.Hosts[0].Ref

	mustCtl(t, "POST", "/host/nic/add", map[string]interface{}{"host": host, "device": "vmnic9", "mac": "00:50:56:99:00:01",
		"speedMb": 1000, "duplex": true, "vswitch": "vSwitch0", "vendor": "Acme", "model": "NIC 9"}, nil)
	w.await(t, "NIC with its hardware", func(u types.ObjectUpdate) bool {
		_, hw := change(u, "hardware")
		_, net := change(u, "config.network")
		return u.Obj.Value == host && hw && net
	})
	f := facts(t)
	for _, want := range []string{"pnic " + host + "/vmnic9 vendor Acme", "pnic " + host + "/vmnic9 speedMb 1000",
		"pnic " + host + "/vmnic9 switchId key-vim.host.VirtualSwitch-vSwitch0" + host} {
		if !f[want] {
			t.Errorf("no fact %q", want)
		}
	}
	if code := ctl(t, "POST", "/host/nic/add", map[string]interface{}{"host": host, "device": "vmnic9"}, nil); code != http.StatusConflict {
		t.Errorf("the same NIC twice: status %d", code)
	}
	mustCtl(t, "POST", "/host/nic/remove", map[string]string{"host": host, "device": "vmnic9"}, nil)
	if facts(t)["pnic "+host+"/vmnic9 vendor Acme"] {
		t.Error("the NIC stays in the facts")
	}
	if code := ctl(t, "POST", "/host/nic/remove", map[string]string{"host": host, "device": "vmnic9"}, nil); code != http.StatusNotFound {
		t.Errorf("an unknown NIC: status %d", code)
	}

	var pg PortgroupView
	for _, p := range inv.Portgroups {
		if !p.Uplink && p.VlanId != nil {
			pg = p
			break
		}
	}
	mustCtl(t, "POST", "/portgroup/vlan", map[string]interface{}{"portgroup": pg.Ref, "trunk": []VlanRange{{0, 100}, {200, 4095}}}, nil)
	if !facts(t)["dvpg "+pg.Ref+" vlan trunk 1-100"] {
		t.Error("no trunk fact")
	}
	mustCtl(t, "POST", "/portgroup/vlan", map[string]interface{}{"portgroup": pg.Ref, "pvlan": 5}, nil)
	if !facts(t)["dvpg "+pg.Ref+" vlan none"] {
		t.Error("a PVLAN is no VLAN of the client's")
	}
	mustCtl(t, "POST", "/portgroup/vlan", map[string]interface{}{"portgroup": pg.Ref, "vlan": *pg.VlanId}, nil)

	var vm VMView
	for _, v := range inv.Vms {
		if len(v.Nics) > 0 && v.Nics[0].PortgroupKey == pg.Key {
			vm = v
			break
		}
	}
	var moved VMView
	mustCtl(t, "POST", "/vm/nic/move", map[string]string{"vm": vm.Ref, "network": inv.Networks[0].Ref}, &moved)
	if moved.Nics[0].Network != inv.Networks[0].Name || moved.Nics[0].PortKey != "" {
		t.Errorf("card after the move: %+v", moved.Nics[0])
	}
	w.await(t, "card on the standard network", func(u types.ObjectUpdate) bool {
		_, ok := change(u, "config.hardware")
		return u.Obj.Value == vm.Ref && ok
	})
	mustCtl(t, "POST", "/vm/nic/move", map[string]string{"vm": vm.Ref, "network": pg.Ref}, &moved)
	if moved.Nics[0].PortgroupKey != pg.Key || moved.Nics[0].PortKey == vm.Nics[0].PortKey {
		t.Errorf("card back on the port group, on a fresh port: %+v", moved.Nics[0])
	}
}

func TestShutdown(t *testing.T) {
	reset(t)
	c := login(t)
	mustCtl(t, "POST", "/faults", map[string]interface{}{"method": "CurrentTime", "kind": "hang"}, nil)
	held := make(chan error, 1)
	go func() { held <- currentTime(c) }()
	deadline := time.Now().Add(5 * time.Second)
	for {
		var calls []Call
		mustCtl(t, "GET", "/calls?method=CurrentTime", nil, &calls)
		if len(calls) == 1 && calls[0].Outcome == "held" {
			break
		}
		if time.Now().After(deadline) {
			t.Fatal("the call was never held")
		}
		time.Sleep(20 * time.Millisecond)
	}

	sim.stdin.Close() // end of stdin stops the program
	sim.stopped = true
	select {
	case code := <-sim.exit:
		if code != 0 {
			t.Errorf("exit code %d", code)
		}
	case <-time.After(10 * time.Second):
		t.Fatal("the program did not stop when stdin closed")
	}
	select {
	case err := <-held:
		if err == nil {
			t.Error("the held call succeeded after shutdown")
		}
	case <-time.After(5 * time.Second):
		t.Error("the held call did not end with the server")
	}
	if _, err := http.Get(sim.control + "/health"); err == nil {
		t.Error("the control interface still answers")
	}
}

// TestScale builds the inventory of the scale tests, 200 hosts and 5,000
// machines, and takes one full update set and one change through the
// library's filter. It takes half a minute, so it runs only with
// VCSIM_SCALE_TEST=1, after TestShutdown has stopped the shared simulator.
func TestScale(t *testing.T) {
	if os.Getenv("VCSIM_SCALE_TEST") == "" {
		t.Skip("set VCSIM_SCALE_TEST=1 to run")
	}
	if !sim.stopped {
		t.Skip("needs the shared simulator stopped; run the whole package")
	}
	cfg := DefaultConfig()
	cfg.Username, cfg.Password = testUser, testPass
	cfg.StandaloneHosts, cfg.Clusters, cfg.ClusterHosts, cfg.VMsPerHost = 0, 4, 50, 25
	start := time.Now()
	s, err := Start(cfg)
	if err != nil {
		t.Fatal(err)
	}
	defer s.Close()
	t.Logf("ready after %v", time.Since(start))
	sim.url, sim.control = s.URL, s.ControlURL

	inv := inventory(t)
	if len(inv.Hosts) != 200 || len(inv.Vms) != 5000 {
		t.Fatalf("%d hosts, %d machines", len(inv.Hosts), len(inv.Vms))
	}
	c := login(t)
	ctx := context.Background()
	createFilter(t, c, libraryFilterSpec(c.ServiceContent.RootFolder))
	start = time.Now()
	res, err := methods.WaitForUpdates(ctx, c, &types.WaitForUpdates{This: c.ServiceContent.PropertyCollector})
	if err != nil {
		t.Fatal(err)
	}
	if n := len(objectUpdates(&res.Returnval)); n < 5200 {
		t.Errorf("%d objects in the first update set", n)
	}
	t.Logf("first update set after %v", time.Since(start))

	vm := inv.Vms[4321]
	mustCtl(t, "POST", "/vm/power", map[string]string{"vm": vm.Ref, "state": "poweredOff"}, nil)
	start = time.Now()
	res, err = methods.WaitForUpdates(ctx, c, &types.WaitForUpdates{This: c.ServiceContent.PropertyCollector, Version: res.Returnval.Version})
	if err != nil {
		t.Fatal(err)
	}
	if u := objectUpdates(&res.Returnval); len(u) != 1 || u[0].Obj.Value != vm.Ref {
		t.Errorf("updates %+v", u)
	}
	t.Logf("change after %v", time.Since(start))
}

// A traversal spec follows only objects of its type or a subtype, as in
// vCenter: one for VirtualApp.vm leaves a host's machines alone, one for
// ComputeResource.host follows a cluster's hosts.
func TestTraversalSpecsKeepToTheirType(t *testing.T) {
	reset(t)
	inv := inventory(t)
	var cluster ComputeView
	for _, cr := range inv.ComputeResources {
		if cr.Type == "ClusterComputeResource" && len(cr.Hosts) > 0 {
			cluster = cr
		}
	}
	if cluster.Ref == "" {
		t.Fatal("no cluster with hosts")
	}
	c := login(t)
	no := types.NewBool(false)
	trav := func(typ, path string) []types.BaseSelectionSpec {
		return []types.BaseSelectionSpec{&types.TraversalSpec{Type: typ, Path: path, Skip: no}}
	}
	hostRef := types.ManagedObjectReference{Type: "HostSystem", Value: cluster.Hosts[0]}
	clusterRef := types.ManagedObjectReference{Type: "ClusterComputeResource", Value: cluster.Ref}
	createFilter(t, c, types.PropertyFilterSpec{
		ObjectSet: []types.ObjectSpec{
			{Obj: hostRef, Skip: no, SelectSet: trav("VirtualApp", "vm")},
			{Obj: clusterRef, Skip: types.NewBool(true), SelectSet: trav("ComputeResource", "host")},
		},
		PropSet: []types.PropertySpec{{Type: "HostSystem", PathSet: []string{"name"}}, {Type: "VirtualMachine", PathSet: []string{"name"}}},
	})
	got := map[string]bool{}
	for _, u := range objectUpdates(checkForUpdates(t, c, "")) {
		got[u.Obj.Type+":"+u.Obj.Value] = true
	}
	want := map[string]bool{}
	for _, h := range cluster.Hosts {
		want["HostSystem:"+h] = true
	}
	if !reflect.DeepEqual(got, want) {
		t.Errorf("objects %v, want the cluster's hosts alone %v", got, want)
	}
}
