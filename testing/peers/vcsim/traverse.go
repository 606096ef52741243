package main

import (
	"reflect"
	"unicode"

	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/types"
)

// typedSpec returns a filter spec that names the objects of spec one by one,
// found by walking its traversal specs as vCenter does: a TraversalSpec
// applies only to objects of its type or a subtype. govmomi's collector
// applies every spec to every object it reaches, so that a spec for
// VirtualApp.vm follows HostSystem.vm and Network.vm too, and one for
// VirtualApp.resourcePool follows each machine's pool to every machine of
// the pool: quadratic in the machines of a cluster, seconds per collect.
func typedSpec(ctx *simulator.Context, spec types.PropertyFilterSpec) types.PropertyFilterSpec {
	w := walker{ctx: ctx, specs: map[string]*types.TraversalSpec{}, listed: map[types.ManagedObjectReference]bool{},
		walked: map[walkStep]bool{}}
	for _, o := range spec.ObjectSet {
		if o.SelectSet == nil || !isTrue(o.Skip) {
			w.list(o.Obj)
		}
		w.walk(o.Obj, o.SelectSet)
	}
	out := spec
	out.ObjectSet = make([]types.ObjectSpec, 0, len(w.refs))
	for _, r := range w.refs {
		out.ObjectSet = append(out.ObjectSet, types.ObjectSpec{Obj: r})
	}
	return out
}

type walkStep struct {
	obj  types.ManagedObjectReference
	spec *types.TraversalSpec
}

type walker struct {
	ctx    *simulator.Context
	specs  map[string]*types.TraversalSpec // by name, as they are met
	refs   []types.ManagedObjectReference  // in the order reached
	listed map[types.ManagedObjectReference]bool
	walked map[walkStep]bool
}

func (w *walker) list(ref types.ManagedObjectReference) {
	if !w.listed[ref] {
		w.listed[ref] = true
		w.refs = append(w.refs, ref)
	}
}

func (w *walker) walk(ref types.ManagedObjectReference, selectSet []types.BaseSelectionSpec) {
	for _, ss := range selectSet {
		if ts, ok := ss.(*types.TraversalSpec); ok && ts.Name != "" {
			w.specs[ts.Name] = ts
		}
	}
	obj := w.ctx.Session.Get(ref)
	if obj == nil {
		return
	}
	val := reflect.Indirect(reflect.ValueOf(obj))
	for _, ss := range selectSet {
		ts, ok := ss.(*types.TraversalSpec)
		if !ok {
			ts = w.specs[ss.GetSelectionSpec().Name]
		}
		step := walkStep{ref, ts}
		if ts == nil || w.walked[step] || !isKind(val.Type(), ts.Type) {
			continue
		}
		w.walked[step] = true
		for _, next := range refsAt(val, ts.Path) {
			if !isTrue(ts.Skip) {
				w.list(next)
			}
			w.walk(next, ts.SelectSet)
		}
	}
}

// isKind tells whether a simulator object's struct is of the vim25 type
// named, directly or through the types it embeds (a cluster is a
// ComputeResource, a vApp a ResourcePool).
func isKind(t reflect.Type, name string) bool {
	if t.Name() == name {
		return true
	}
	for i := 0; i < t.NumField(); i++ {
		if f := t.Field(i); f.Anonymous && f.Type.Kind() == reflect.Struct && isKind(f.Type, name) {
			return true
		}
	}
	return false
}

// refsAt reads the references at a property path of one segment; the
// deepest field of that name wins over an embedded struct of the same name
// (mo.VirtualApp embeds mo.ResourcePool, whose children are resourcePool).
func refsAt(val reflect.Value, path string) []types.ManagedObjectReference {
	name := []rune(path)
	name[0] = unicode.ToUpper(name[0])
	f := val.FieldByName(string(name))
	for f.IsValid() && f.Kind() == reflect.Struct && f.Type() != reflect.TypeOf(types.ManagedObjectReference{}) {
		f = f.FieldByName(string(name))
	}
	if !f.IsValid() {
		return nil
	}
	switch v := f.Interface().(type) {
	case []types.ManagedObjectReference:
		return v
	case types.ManagedObjectReference:
		return []types.ManagedObjectReference{v}
	case *types.ManagedObjectReference:
		if v != nil {
			return []types.ManagedObjectReference{*v}
		}
	}
	return nil
}

func isTrue(b *bool) bool { return b != nil && *b }
