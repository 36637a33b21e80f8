"""The catalogue after reading: every named type (inner pieces lifted and named), the
identifier constants with their arcs, the information object classes, objects and sets,
and the questions the emitter asks of a type (its C storage, tags, form, pointers)."""

import copy

from asn1parse import Type, Field, Tag, ParseError, STRING_TYPES, TIME_TYPES

# Information object classes: operation suffix and the record's extra members.
CLASS_SHAPES = {
    'EXTENSION': ('ExtnType', False, False),
    'ATTRIBUTE': ('Type', False, False),
    'ALGORITHM_ID': ('Type', True, False),
    'INFOTYPEANDVALUE': ('Type', False, False),
    'CONTENT_TYPE': ('Type', False, False),
    'ECONTENT_TYPE': ('Type', False, False),
    'CERT_POLICY_QUALIFIER': ('Qualifier', True, False),
    'OCSP_RESPONSE_TYPE': ('Type', False, False),
    'MATCHING_RULE': ('AssertionType', True, True),
}

UNIV_TAG = {
    'BOOLEAN': 1, 'INTEGER': 2, 'BITS': 3, 'OCTETS': 4, 'NULL': 5, 'OID': 6,
    'ENUMERATED': 10, 'SEQUENCE': 16, 'SEQOF': 16, 'SET': 17, 'SETOF': 17,
}

ANNOTATIONS = {
    # on INTEGER types and fields
    'unsigned': '32-bit unsigned', 'u16': '16-bit unsigned', 'bigint': 'any size, as text',
    # on SEQUENCE OF / SET OF
    'array': 'array form (n, elem) instead of the list form',
    'seqtag': 'a SET OF that writes and matches the SEQUENCE tag',
    # on any type
    'eoc': 'consumes end-of-contents after its contents (indefinite length)',
    'control': 'base class of the control class',
    'name': 'name of the lifted inner type of this field',
    'tablecopy': 'none: copy and free leave the sibling of an OCTET STRING table field alone',
    'sibling': 'name of the decoded sibling of an OCTET STRING table field',
}


class NamedType:
    def __init__(self, name, t, module, area, inner=False):
        self.name = name
        self.t = t
        self.module = module
        self.area = area
        self.inner = inner
        self.order = 0


class Catalogue:
    def __init__(self):
        self.types = {}        # name -> NamedType
        self.order = []        # names in file order (lifted types right before their parent)
        self.consts = {}       # name -> (arcs or None for the start-up filled one)
        self.const_order = []
        self.ints = {}
        self.classes = {}
        self.objects = {}      # name -> dict
        self.object_order = []
        self.sets = {}         # name -> (class, [objects])
        self.set_order = []

    # -- building ------------------------------------------------------------------------
    def add_module(self, mod, area):
        for name, kind, value, ann, line in mod.values:
            if kind == 'INTEGER':
                self.ints[name] = value
            else:
                if name in self.consts:
                    raise ParseError('%s: identifier %s defined twice' % (mod.file, name))
                self.consts[name] = (value, ann, mod.file, line)
                self.const_order.append(name)
        for name, ann in mod.classes:
            if name not in CLASS_SHAPES:
                raise ParseError('%s: unknown information object class %s' % (mod.file, name))
            self.classes[name] = ann
        for name, t in mod.types:
            self.add_type(name, t, mod, area)
        for name, cls, typ, oid, ann in mod.objects:
            if name in self.objects:
                raise ParseError('%s: object %s defined twice' % (mod.file, name))
            obj = {'name': name, 'class': cls, 'oid': oid, 'ann': ann, 'value': None,
                   'direct': None, 'area': area, 'module': mod}
            if typ is not None:
                suffix = CLASS_SHAPES[cls][0]
                if typ.kind == 'REF' and typ.tag is None and typ.size is None:
                    obj['value'] = typ.ref
                elif typ.tag is None and typ.size is None and (
                        typ.kind == 'NULL' or typ.kind == 'STRING'):
                    obj['direct'] = typ
                else:
                    vname = '_%s_%s' % (name, suffix)
                    # Annotations written on the object speak of its value type.
                    typ.ann = {k: v for k, v in ann.items() if k != 'pending'}
                    self.add_type(vname, typ, mod, area)
                    obj['value'] = vname
            self.objects[name] = obj
            self.object_order.append(name)
        for name, cls, members, ann in mod.sets:
            self.sets[name] = (cls, members)
            self.set_order.append(name)

    def add_type(self, name, t, mod, area, inner=False):
        if name in self.types:
            old = self.types[name]
            if inner and same_shape(old.t, t):
                return
            raise ParseError('%s:%d: type %s defined twice' % (mod.file, t.line, name))
        nt = NamedType(name, t, mod, area, inner)
        # Inner pieces first, so that the file order is a usable declaration order.
        self.lift(name, t, mod, area)
        self.types[name] = nt
        nt.order = len(self.order)
        self.order.append(name)

    def lift(self, parent, t, mod, area):
        if t.kind in ('SEQUENCE', 'SET', 'CHOICE'):
            for f in t.fields:
                f.type = self.lift_field(parent, f.name, f.type, f.ann, mod, area)
        elif t.kind in ('SEQOF', 'SETOF'):
            t.elem = self.lift_elem(parent, t.elem, mod, area)

    def lift_elem(self, parent, et, mod, area):
        if et.kind in ('SEQUENCE', 'SET', 'CHOICE', 'SEQOF', 'SETOF'):
            name = parent + '_element'
            return self.make_ref(name, et, mod, area)
        return et

    def lift_field(self, parent, fname, ft, ann, mod, area):
        """An inner type named after its parent keeps its tag (it writes the tag itself);
        a shared list type (_SeqOfX, _SetOfX) leaves the tag on the field."""
        forced = ann.get('name', [None])[0] if ann.get('name') else None
        if ft.kind in ('SEQUENCE', 'SET', 'CHOICE') or (ft.kind in ('INTEGER', 'ENUMERATED') and ft.named):
            # Numbers with named values get a type of their own as well.
            return self.make_ref(forced or '%s_%s' % (parent, fname), ft, mod, area, True)
        if ft.kind in ('SEQOF', 'SETOF'):
            own = True
            if forced:
                name = forced
                ft.elem = self.lift_elem(name, ft.elem, mod, area)
            else:
                et = ft.elem
                prefix = '_SeqOf' if ft.kind == 'SEQOF' else '_SetOf'
                if et.kind in ('SEQUENCE', 'SET', 'CHOICE', 'SEQOF', 'SETOF'):
                    ft.elem = self.lift_elem('%s_%s' % (parent, fname), et, mod, area)
                    name = prefix + ft.elem.ref
                    own = False
                elif et.kind == 'REF' and et.tag is None and et.size is None and ft.size is None:
                    # An unconstrained list of a named type is shared under one name; a
                    # constrained one is the parent's own.
                    name = prefix + et.ref
                    own = False
                else:
                    name = '%s_%s' % (parent, fname)
            return self.make_ref(name, ft, mod, area, own)
        return ft

    def make_ref(self, name, t, mod, area, tag_on_type=False):
        tag = None if tag_on_type else t.tag
        inner = copy.copy(t)
        inner.tag = t.tag if tag_on_type else None
        inner.line, inner.file = t.line, t.file
        if not inner.ann:
            inner.ann = {}
        self.add_type(name, inner, mod, area, inner=True)
        r = Type('REF')
        r.ref = name
        r.tag = tag
        r.line, r.file = t.line, t.file
        return r

    # -- checks after all modules are in ------------------------------------------------
    def finish(self):
        for name in self.order:
            nt = self.types[name]
            self.check_refs(nt.t, nt)
            for f in nt.t.fields:
                f.owner = name
        for name in self.const_order:
            self.const_arcs(name)
        for oname in self.object_order:
            o = self.objects[oname]
            if o['class'] not in self.classes:
                raise ParseError('object %s: class %s not declared' % (oname, o['class']))
            if o['value'] and o['value'] not in self.types:
                raise ParseError('object %s: unknown value type %s' % (oname, o['value']))
            o['arcs'] = self.oid_arcs(o['oid'], 'object ' + oname)
        for sname in self.set_order:
            cls, members = self.sets[sname]
            for m in members:
                if m not in self.objects:
                    raise ParseError('set %s: unknown object %s' % (sname, m))
                if self.objects[m]['class'] != cls:
                    raise ParseError('set %s: object %s is of class %s' % (sname, m, self.objects[m]['class']))

    def check_refs(self, t, nt):
        if t.kind == 'REF' and t.ref not in self.types:
            raise ParseError('%s:%d: unknown type %s (in %s)' % (t.file, t.line, t.ref, nt.name))
        for f in t.fields:
            self.check_refs(f.type, nt)
        if t.elem is not None:
            self.check_refs(t.elem, nt)
        if t.table is not None and t.table[2] not in self.sets:
            raise ParseError('%s: unknown object set %s' % (nt.name, t.table[2]))

    def const_arcs(self, name, seen=()):
        value = self.consts[name][0]
        if name in seen:
            raise ParseError('identifier %s refers to itself' % name)
        return self.oid_arcs(value, name, seen + (name,))

    def oid_arcs(self, parts, what, seen=()):
        arcs = []
        for p in parts:
            if isinstance(p, int):
                arcs.append(p)
            elif p in self.consts:
                arcs.extend(self.const_arcs(p, seen))
            else:
                raise ParseError('%s: unknown identifier %s' % (what, p))
        return arcs

    def bound(self, b):
        if isinstance(b, tuple):
            if b[1] not in self.ints:
                raise ParseError('unknown bound %s' % b[1])
            return self.ints[b[1]]
        return b

    # -- questions about types -----------------------------------------------------------
    def named(self, name):
        return self.types[name]

    def deref(self, t):
        """Follows references to the defining Type; the first tag met is kept apart."""
        seen = 0
        while t.kind == 'REF':
            t = self.types[t.ref].t
            seen += 1
            if seen > 100:
                raise ParseError('reference loop at %s' % t)
        return t

    def root(self, name):
        return self.deref(self.types[name].t)

    def type_tag(self, t, module):
        """The outermost tag word of a type occurrence, and whether that tag is written as a
        constructed EXPLICIT wrapper. Untagged CHOICE and open types have none (None)."""
        if t.tag is not None:
            return t.tag
        if t.kind == 'REF':
            return self.type_tag(self.types[t.ref].t, self.types[t.ref].module)
        return None

    def is_explicit(self, t, module):
        """Whether the tag on this occurrence is EXPLICIT."""
        tag = t.tag
        mode = tag.mode or module.tagging
        if mode == 'EXPLICIT':
            return True
        # A CHOICE or an open type has no tag of its own to replace.
        inner = t
        if inner.kind == 'REF':
            nt = self.types[inner.ref]
            if nt.t.tag is None and self.deref(nt.t).kind in ('CHOICE', 'ANY', 'OPEN'):
                return True
            return False
        return inner.kind in ('CHOICE', 'ANY', 'OPEN')

    def constructed(self, t):
        """Form of the contents of a type when written with its own tag replaced."""
        if t.kind == 'REF':
            nt = self.types[t.ref]
            if nt.t.tag is not None:
                return self.is_explicit(nt.t, nt.module) or self.constructed_untagged(nt.t)
            return self.constructed(nt.t)
        return self.constructed_untagged(t)

    def constructed_untagged(self, t):
        if t.kind == 'REF':
            return self.constructed(t)
        return t.kind in ('SEQUENCE', 'SET', 'SEQOF', 'SETOF', 'CHOICE')

    def first_tags(self, t, module):
        """Tag words that can open a value of this occurrence: [(tag, both_forms)]."""
        if t.tag is not None:
            word = t.tag.word()
            if self.is_explicit(t, module) or self.constructed_untagged_ref(t):
                return [(word | 0x20000000, False)]
            return [(word, False)]
        if t.kind == 'REF':
            nt = self.types[t.ref]
            return self.first_tags(nt.t, nt.module)
        if t.kind == 'CHOICE':
            out = []
            for f in t.fields:
                out.extend(self.first_tags(f.type, module))
            return out
        if t.kind in ('ANY', 'OPEN'):
            return None
        if t.kind in ('STRING', 'TIME'):
            num = STRING_TYPES.get(t.strname) or TIME_TYPES[t.strname]
            return [(num, True)]
        num = UNIV_TAG[t.kind]
        if t.kind in ('OCTETS', 'BITS'):
            return [(num, True)]
        if t.kind in ('SEQUENCE', 'SET', 'SEQOF', 'SETOF'):
            if t.kind == 'SETOF' and 'seqtag' in t.ann:
                num = 16
            return [(num | 0x20000000, False)]
        return [(num, False)]

    def constructed_untagged_ref(self, t):
        u = copy.copy(t)
        u.tag = None
        return self.constructed(u)


def same_shape(a, b):
    if a.kind != b.kind or a.size != b.size or a.range != b.range:
        return False
    if (a.tag is None) != (b.tag is None):
        return False
    if a.kind == 'REF':
        return a.ref == b.ref
    if a.kind in ('SEQOF', 'SETOF'):
        return same_shape(a.elem, b.elem) and a.ann.keys() == b.ann.keys()
    if a.kind in ('STRING', 'TIME'):
        return a.strname == b.strname
    if a.kind in ('SEQUENCE', 'SET', 'CHOICE'):
        return len(a.fields) == len(b.fields) and all(
            x.name == y.name and same_shape(x.type, y.type) for x, y in zip(a.fields, b.fields))
    return True
