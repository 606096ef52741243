#!/usr/bin/env python3
"""Replies of vCenter at the edges of the schema, as inputs of Vim25ReplyFuzz.

Reads the classes of vim25/vim25.h (the records the library reads) and
writes, for every reply the library takes in, instances of each record:
  min     only the required elements (no pointer or list field)
  max-K   every element, lists of two, the K-th known subtype of each
          polymorphic field (so that every declared subtype comes once)
  newer   every element, plus elements and subtypes that no declared
          version has, as a newer vCenter sends them
  min-T   every element, but each record of class T with only its required
          ones, for every class T
  lean-T  likewise, but T keeps its records (pointers to classes), as where
          the schema requires them
  (min-T and lean-T twice: with the base class and the first subtype of
  each polymorphic field)

    schema_edges.py vim25.h out-dir
"""
import re
import sys
from pathlib import Path

FIELD = re.compile(r"^\s*(@?)\s*(enum\s+)?([\w:<>*\s]+?)\s*(\*?)\s*(\w+);")


def parse(header):
    classes, enums, order = {}, {}, []
    text = Path(header).read_text()
    for m in re.finditer(r"^enum (\w+)\s*\{([^}]*)\}", text, re.M):
        enums[m.group(1)] = [v.strip().split("__")[-1] for v in m.group(2).split(",") if v.strip()]
    for m in re.finditer(r"^class (\w+)(?: : public (\w+))?\s*\{ public:(.*?)^\};", text, re.M | re.S):
        fields = []
        for line in m.group(3).splitlines():
            f = FIELD.match(line)
            if not f or "struct soap" in line:
                continue
            attr, enum, typ, ptr, name = f.groups()
            fields.append({"attr": bool(attr), "enum": bool(enum), "type": typ.strip(), "ptr": bool(ptr),
                           "name": name})
        classes[m.group(1)] = {"base": m.group(2), "fields": fields}
        order.append(m.group(1))
    return classes, enums, order


CLASSES, ENUMS, ORDER = parse(sys.argv[1])


def xml_name(cls):
    return cls.replace("ns2__", "").rstrip("_").replace("xsd__string", "xsd:string")


def all_fields(cls):
    base = CLASSES[cls]["base"]
    return (all_fields(base) if base in CLASSES else []) + CLASSES[cls]["fields"]


def subtypes(cls):
    """The class and every class derived from it, in the header's order."""
    out = [cls]
    for c in ORDER:
        b = CLASSES[c]["base"]
        while b and b != cls:
            b = CLASSES.get(b, {}).get("base")
        if b == cls and c != cls:
            out.append(c)
    return out


def scalar(typ, name, variant):
    if variant == "min":
        return {"bool": "false", "time_t": "1970-01-01T00:00:00Z"}.get(typ, "0" if typ in (
            "int", "short", "LONG64") else "")
    if typ in ("int", "short", "LONG64"):
        return "25000" if "speed" in name.lower() else "4094"
    if typ == "bool":
        return "true"
    if typ == "time_t":
        return "2026-11-24T12:00:00.123456Z"
    if name in ("device", "pnicDevice", "nicDevice"):
        return "vmnic0"  # the records that name a NIC meet
    if "mac" in name.lower():
        return "00:50:56:aa:bb:cc"
    if "addr" in name.lower() or "ip" in name.lower():
        return "192.0.2.1"
    return f"{name}-&lt;&amp;&quot;é-{variant}"


class Writer:
    def __init__(self, variant, pick, hollow=None, outer=None):
        self.variant, self.pick, self.hollow = variant, pick, hollow
        self.outer = outer or self  # writes the records inside a hollow one

    def element(self, tag, declared, depth):
        """An element of the declared class: the chosen subtype, filled in."""
        newer = self.variant == "newer"
        choices = subtypes(declared)
        cls = choices[self.pick % len(choices)] if self.variant.startswith("max") else declared
        xsi = xml_name(cls)
        if newer and len(choices) > 1:
            xsi = xml_name(declared) + "Future"  # a subtype that no declared version has
        typed = f' xsi:type="{xsi}"' if cls != declared or newer and len(choices) > 1 or declared == "xsd__anyType" \
            or tag == "val" else ""
        if declared == "xsd__anyType":
            return f'<{tag} xsi:type="xsd:string">{scalar("std::string", tag, self.variant)}</{tag}>'
        attrs, body = "", []
        filler = Writer(self.hollow[0], self.pick, outer=self) if self.hollow and cls == self.hollow[1] else self
        for f in all_fields(cls):
            attrs_, part = filler.field(f, depth)
            attrs += attrs_
            body.append(part)
        if newer and cls not in ("xsd__string", "ns2__ManagedObjectReference") and not any(
                f["name"] == "__item" for f in all_fields(cls)):
            body.append("<futureElement><nested>1</nested></futureElement>")
        return f"<{tag}{typed}{attrs}>{''.join(body)}</{tag}>"

    def field(self, f, depth):
        typ, name, minimal = f["type"], f["name"], self.variant == "min"
        if typ == "_XML":
            return "", ""
        if f["attr"]:
            return ("", "") if minimal and f["ptr"] else (f' {name}="{scalar(typ, name, self.variant)}"', "")
        if name == "__item":
            if f["enum"]:
                return "", ENUMS[typ][-1 if not minimal else 0]
            return "", scalar(typ, "ref" if "ManagedObject" in typ else name, self.variant)
        vector = re.match(r"std::vector<(\w+(?:::\w+)?)\s*\*?>", typ)
        if vector:
            if minimal or self.variant == "lean":
                return "", ""
            item = vector.group(1)
            if item == "std::string":
                return "", "".join(f"<{name}>{scalar(item, name, self.variant)[:-1]}{i}</{name}>" for i in range(2))
            if depth > 8:
                return "", ""
            o = self.outer
            items = [Writer(o.variant, o.pick + i, o.hollow).element(name, item, depth + 1) for i in range(2)]
            return "", "".join(items)
        if f["ptr"] and minimal:
            return "", ""
        if f["ptr"] and self.variant == "lean" and typ not in CLASSES:
            return "", ""
        if f["enum"]:
            return "", f"<{name}>{ENUMS[typ][0 if minimal else -1]}</{name}>"
        if typ in CLASSES or typ == "xsd__anyType":
            return "", "" if depth > 8 else self.outer.element(name, typ, depth + 1)
        return "", f"<{name}>{scalar(typ, name, self.variant)}</{name}>"


ENVELOPE = ('<?xml version="1.0" encoding="UTF-8"?>\n<soapenv:Envelope xmlns:soapenv="http://schemas.xmlsoap.org/'
            'soap/envelope/" xmlns:xsd="http://www.w3.org/2001/XMLSchema" xmlns:xsi="http://www.w3.org/2001/'
            'XMLSchema-instance"><soapenv:Body><{0}Response xmlns="urn:vim25">{1}</{0}Response>'
            '</soapenv:Body></soapenv:Envelope>\n')

# What the property filters ask for, with the record of each value.
PROPERTIES = {
    ("HostSystem", "host-1"): [("name", "xsd__string"), ("config.network", "ns2__HostNetworkInfo"),
                               ("configManager.networkSystem", "ns2__ManagedObjectReference"),
                               ("parent", "ns2__ManagedObjectReference"), ("hardware", "ns2__HostHardwareInfo")],
    ("VirtualMachine", "vm-1"): [("name", "xsd__string"), ("runtime.powerState", "ns2__VirtualMachinePowerState_"),
                                 ("config.hardware", "ns2__VirtualHardware"),
                                 ("runtime.host", "ns2__ManagedObjectReference"),
                                 ("config.ftInfo", "ns2__FaultToleranceConfigInfo")],
    ("VmwareDistributedVirtualSwitch", "dvs-1"): [("name", "xsd__string"), ("uuid", "xsd__string")],
    ("DistributedVirtualPortgroup", "dvportgroup-1"): [("name", "xsd__string"),
                                                       ("config", "ns2__DVPortgroupConfigInfo")],
    ("Datacenter", "datacenter-1"): [("name", "xsd__string"), ("hostFolder", "ns2__ManagedObjectReference")],
    ("ComputeResource", "domain-s1"): [("parent", "ns2__ManagedObjectReference")],
    ("EventHistoryCollector", "session[1]1"): [("latestPage", "ns2__ArrayOfEvent")],
}


def update_set(w, kind):
    objects = []
    for (typ, ref), props in PROPERTIES.items():
        changes = "".join(f"<changeSet><name>{p}</name><op>assign</op>{w.element('val', cls, 0)}</changeSet>"
                          for p, cls in props)
        objects.append(f'<objectSet><kind>{kind}</kind><obj type="{typ}">{ref}</obj>{changes}</objectSet>')
    return (f'<returnval><version>{kind}</version><filterSet><filter type="PropertyFilter">filter-1</filter>'
            f'{"".join(objects)}</filterSet></returnval>')


def replies(w):
    """Inputs of the fuzz target: its first byte picks the reply."""
    yield "enter", b"\0", ENVELOPE.format("WaitForUpdates", update_set(w, "enter"))
    yield "ports", b"\1", ENVELOPE.format("FetchDVPorts", "".join(
        w.element("returnval", "ns2__DistributedVirtualPort", 0) for _ in range(2)))
    yield "hints", b"\2", ENVELOPE.format("QueryNetworkHint", "".join(
        w.element("returnval", "ns2__PhysicalNicHintInfo", 0) for _ in range(2)))
    yield "connect", b"\3", ENVELOPE.format("RetrieveServiceContent", w.element(
        "returnval", "ns2__ServiceContent", 0)) + ENVELOPE.format("Login", w.element("returnval", "ns2__UserSession", 0))
    yield "modify", b"\0", ENVELOPE.format("WaitForUpdates", update_set(w, "modify"))
    yield "leave", b"\0", ENVELOPE.format("WaitForUpdates", update_set(w, "leave"))


def main():
    out = Path(sys.argv[2])
    out.mkdir(parents=True, exist_ok=True)
    declared = {re.sub(r"std::vector<(\w+)\s*\*?>", r"\1", f["type"]) for c in ORDER for f in CLASSES[c]["fields"]}
    widest = max(len(subtypes(c)) for c in declared if c in CLASSES and c != "xsd__anyType")
    variants = ["min"] + [f"max-{k}" for k in range(widest)] + ["newer"] + [
        f"{how}-{c}-{k}" for how in ("min", "lean") for c in ORDER for k in (0, 1)]
    for v in variants:
        if v.count("-") == 2:
            how, cls, k = v.split("-")
            w = Writer("max", int(k), (how, cls))
        else:
            w = Writer(v, int(v.split("-")[1]) if v.startswith("max") else 0)
        for i, (what, first, body) in enumerate(replies(w)):
            (out / f"{v}-{i}-{what}").write_bytes(first + body.encode())
    print(f"{len(variants)} variants of {len(PROPERTIES)} objects written to {out}")


main()
