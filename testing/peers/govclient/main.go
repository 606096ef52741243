// Command govclient is the govmomi peer of libHarbec's benchmarks: a vCenter
// client written the way a Go program would use govmomi, asking for the same
// properties with the same property filter as libHarbec's session, and
// keeping what it hears in govmomi's managed object structs.
//
// With -mode sync it logs in, installs the filter, takes the first update
// set with CheckForUpdates and prints, flushed, one line each:
//
//	GOVCLIENT_OBJECTS=5209
//	GOVCLIENT_WALL_S=1.234
//	GOVCLIENT_CPU_S=2.345
//	GOVCLIENT_PEAK_KB=123456
//	GOVCLIENT_BASE_KB=12345
//
// The figures cover the first set alone: wall and CPU time of the call and
// of loading the objects, and the process's resident high-water mark, reset
// just before the call (BASE is the resident size at that moment).
//
// With -mode watch it takes the first set, prints GOVCLIENT_READY=<objects>
// and then loops on WaitForUpdates; for every changed "name" that starts
// with -prefix it prints "NOTIFY <name> <unix nanoseconds>" once the change
// is applied to its objects. It stops when its stdin reaches end of file.
package main

import (
	"bufio"
	"context"
	"flag"
	"fmt"
	"io"
	"net/url"
	"os"
	"strconv"
	"strings"
	"syscall"
	"time"

	"github.com/vmware/govmomi/session"
	"github.com/vmware/govmomi/vim25"
	"github.com/vmware/govmomi/vim25/methods"
	"github.com/vmware/govmomi/vim25/mo"
	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
)

func main() {
	os.Exit(run(os.Args[1:], os.Stdin, os.Stdout, os.Stderr))
}

func run(args []string, stdin io.Reader, stdout, stderr io.Writer) int {
	fs := flag.NewFlagSet("govclient", flag.ContinueOnError)
	fs.SetOutput(stderr)
	rawURL := fs.String("url", "", "vim25 endpoint, https://host:port/sdk")
	username := fs.String("username", "administrator@vsphere.local", "user name")
	password := fs.String("password", "vmware", "password")
	mode := fs.String("mode", "sync", "sync or watch")
	prefix := fs.String("prefix", "lat-", "names reported in watch mode")
	if err := fs.Parse(args); err != nil {
		return 2
	}
	out := bufio.NewWriter(stdout)
	defer out.Flush()

	ctx := context.Background()
	c, pc, err := connect(ctx, *rawURL, *username, *password)
	if err != nil {
		fmt.Fprintf(stderr, "govclient: %v\n", err)
		return 1
	}
	switch *mode {
	case "sync":
		err = firstSync(ctx, c, pc, out)
	case "watch":
		go func() { // the harness holds our stdin; its end is ours
			_, _ = io.Copy(io.Discard, stdin)
			out.Flush()
			os.Exit(0)
		}()
		err = watch(ctx, c, pc, *prefix, out)
	default:
		err = fmt.Errorf("unknown mode %q", *mode)
	}
	if err != nil {
		out.Flush()
		fmt.Fprintf(stderr, "govclient: %v\n", err)
		return 1
	}
	return 0
}

// connect logs in and installs the property filter; it returns the client
// and the property collector.
func connect(ctx context.Context, rawURL, username, password string) (*vim25.Client, types.ManagedObjectReference, error) {
	u, err := url.Parse(rawURL)
	if err != nil {
		return nil, types.ManagedObjectReference{}, err
	}
	c, err := vim25.NewClient(ctx, soap.NewClient(u, true))
	if err != nil {
		return nil, types.ManagedObjectReference{}, err
	}
	if err := session.NewManager(c).Login(ctx, url.UserPassword(username, password)); err != nil {
		return nil, types.ManagedObjectReference{}, err
	}
	pc := c.ServiceContent.PropertyCollector
	_, err = methods.CreateFilter(ctx, c, &types.CreateFilter{
		This:           pc,
		Spec:           filterSpec(c.ServiceContent.RootFolder),
		PartialUpdates: false,
	})
	return c, pc, err
}

// filterSpec is the inventory filter of libHarbec's session: the whole
// tree from the root folder, six object types with a fixed list of
// properties each.
func filterSpec(root types.ManagedObjectReference) types.PropertyFilterSpec {
	traversal := func(name, typ, path string, next ...string) types.BaseSelectionSpec {
		t := &types.TraversalSpec{Type: typ, Path: path, Skip: types.NewBool(false)}
		t.Name = name
		for _, n := range next {
			t.SelectSet = append(t.SelectSet, &types.SelectionSpec{Name: n})
		}
		return t
	}
	props := func(typ string, paths ...string) types.PropertySpec {
		return types.PropertySpec{Type: typ, All: types.NewBool(false), PathSet: paths}
	}
	return types.PropertyFilterSpec{
		ObjectSet: []types.ObjectSpec{{
			Obj:  root,
			Skip: types.NewBool(false),
			SelectSet: []types.BaseSelectionSpec{
				traversal("folderTravSpec", "Folder", "childEntity",
					"dcVMTravSpec", "dcHostTravSpec", "folderTravSpec", "dcNwFolderTravSpec", "compResHostTravSpec",
					"vAppVmTravSpec", "vAppChildTravSpec"),
				traversal("dcVMTravSpec", "Datacenter", "vmFolder", "folderTravSpec"),
				traversal("dcNwFolderTravSpec", "Datacenter", "networkFolder", "folderTravSpec"),
				traversal("dcHostTravSpec", "Datacenter", "hostFolder", "folderTravSpec"),
				traversal("compResHostTravSpec", "ComputeResource", "host"),
				traversal("clusterCompResHostTravSpec", "ClusterComputeResource", "host"),
				traversal("vAppVmTravSpec", "VirtualApp", "vm"),
				traversal("vAppChildTravSpec", "VirtualApp", "resourcePool", "vAppVmTravSpec", "vAppChildTravSpec"),
			},
		}},
		PropSet: []types.PropertySpec{
			props("VmwareDistributedVirtualSwitch", "name", "uuid", "config.pvlanConfig"),
			props("VirtualMachine", "name", "runtime.powerState", "config.hardware", "runtime.host", "config.ftInfo",
				"config.template"),
			props("HostSystem", "name", "config.network", "configManager.networkSystem", "parent", "hardware",
				"runtime.connectionState", "runtime.inMaintenanceMode"),
			props("DistributedVirtualPortgroup", "name", "config"),
			props("Datacenter", "name", "hostFolder"),
			props("ComputeResource", "parent"),
		},
	}
}

// inventory is what the client knows: govmomi's struct of each object.
type inventory map[types.ManagedObjectReference]mo.Reference

// apply loads one update set into the inventory and calls seen with every
// property change it applied.
func (inv inventory) apply(set *types.UpdateSet, seen func(types.PropertyChange)) error {
	for _, f := range set.FilterSet {
		for _, u := range f.ObjectSet {
			switch u.Kind {
			case types.ObjectUpdateKindLeave:
				delete(inv, u.Obj)
				continue
			case types.ObjectUpdateKindEnter:
				content := types.ObjectContent{Obj: u.Obj}
				for _, c := range u.ChangeSet {
					content.PropSet = append(content.PropSet, types.DynamicProperty{Name: c.Name, Val: c.Val})
				}
				v, err := mo.ObjectContentToType(content, true)
				if err != nil {
					return err
				}
				inv[u.Obj] = v.(mo.Reference)
			default:
				obj, ok := inv[u.Obj]
				if !ok {
					continue
				}
				mo.ApplyPropertyChange(obj, u.ChangeSet)
			}
			if seen != nil {
				for _, c := range u.ChangeSet {
					seen(c)
				}
			}
		}
	}
	return nil
}

func firstSync(ctx context.Context, c *vim25.Client, pc types.ManagedObjectReference, out *bufio.Writer) error {
	base := resetPeak()
	var before syscall.Rusage
	syscall.Getrusage(syscall.RUSAGE_SELF, &before)
	start := time.Now()

	res, err := methods.CheckForUpdates(ctx, c, &types.CheckForUpdates{This: pc, Version: ""})
	if err != nil {
		return err
	}
	if res.Returnval == nil {
		return fmt.Errorf("no update set")
	}
	inv := inventory{}
	if err := inv.apply(res.Returnval, nil); err != nil {
		return err
	}

	wall := time.Since(start)
	var after syscall.Rusage
	syscall.Getrusage(syscall.RUSAGE_SELF, &after)
	peak := status("VmHWM")
	fmt.Fprintf(out, "GOVCLIENT_OBJECTS=%d\n", len(inv))
	fmt.Fprintf(out, "GOVCLIENT_WALL_S=%.6f\n", wall.Seconds())
	fmt.Fprintf(out, "GOVCLIENT_CPU_S=%.6f\n", cpuSeconds(after)-cpuSeconds(before))
	fmt.Fprintf(out, "GOVCLIENT_PEAK_KB=%d\n", peak)
	fmt.Fprintf(out, "GOVCLIENT_BASE_KB=%d\n", base)
	return nil
}

func watch(ctx context.Context, c *vim25.Client, pc types.ManagedObjectReference, prefix string, out *bufio.Writer) error {
	inv := inventory{}
	version := ""
	for {
		res, err := methods.WaitForUpdates(ctx, c, &types.WaitForUpdates{This: pc, Version: version})
		if err != nil {
			return err
		}
		set := res.Returnval
		first := version == ""
		err = inv.apply(&set, func(p types.PropertyChange) {
			if p.Name != "name" || first {
				return
			}
			if name, ok := p.Val.(string); ok && strings.HasPrefix(name, prefix) {
				fmt.Fprintf(out, "NOTIFY %s %d\n", name, time.Now().UnixNano())
			}
		})
		if err != nil {
			return err
		}
		version = set.Version
		if first {
			fmt.Fprintf(out, "GOVCLIENT_READY=%d\n", len(inv))
		}
		if err := out.Flush(); err != nil {
			return err
		}
	}
}

func cpuSeconds(r syscall.Rusage) float64 {
	return float64(r.Utime.Sec+r.Stime.Sec) + float64(r.Utime.Usec+r.Stime.Usec)/1e6
}

// resetPeak sets the process's resident high-water mark back to its present
// resident size, which it returns in kB.
func resetPeak() int64 {
	_ = os.WriteFile("/proc/self/clear_refs", []byte("5"), 0)
	return status("VmRSS")
}

// status reads a kB figure of /proc/self/status.
func status(key string) int64 {
	data, err := os.ReadFile("/proc/self/status")
	if err != nil {
		return 0
	}
	for _, line := range strings.Split(string(data), "\n") {
		if strings.HasPrefix(line, key+":") {
			f := strings.Fields(line[len(key)+1:])
			if len(f) > 0 {
				n, _ := strconv.ParseInt(f[0], 10, 64)
				return n
			}
		}
	}
	return 0
}
