"""C++ for the catalogue: one header with every declaration, and per area a few source
files with the data classes, control classes, encoders, decoders, copies and frees.

The code follows one pattern per shape; what every type shares (end-of-contents tests,
constraint reports, the open-type steps of the table constraints, the life cycle of the
control classes) lives in the hand-written asn1data/asn1data_rt.h and is only called."""

from asn1parse import STRING_TYPES, TIME_TYPES, ParseError
from model import CLASS_SHAPES, UNIV_TAG

SCALAR_KINDS = ('BOOLEAN', 'INTEGER', 'ENUMERATED')


def hexw(v):
    return '0x%08xu' % v


class Code:
    def __init__(self):
        self.lines = []
        self.ind = 0

    def __call__(self, text=''):
        if text:
            self.lines.append('    ' * self.ind + text)
        else:
            self.lines.append('')

    def open(self, text):
        self(text)
        self.ind += 1

    def close(self, text='}'):
        self.ind -= 1
        self(text)

    def text(self):
        return '\n'.join(self.lines) + '\n'


class Emitter:
    def __init__(self, cat):
        self.cat = cat
        self.types = cat.types

    # ==== classification ===============================================================
    def shape(self, name):
        """record, choice, list, array, alias, prim."""
        t = self.types[name].t
        if t.kind == 'REF':
            return 'alias'
        if t.kind in ('SEQUENCE', 'SET'):
            return 'record'
        if t.kind == 'CHOICE':
            return 'choice'
        if t.kind in ('SEQOF', 'SETOF'):
            return 'array' if 'array' in t.ann else 'list'
        return 'prim'

    def alias_target(self, name):
        t = self.types[name].t
        while t.kind == 'REF':
            name = t.ref
            t = self.types[name].t
        return name

    def int_repr(self, t):
        while True:
            for a in ('bigint', 'unsigned', 'u16'):
                if a in t.ann:
                    return a
            if t.kind != 'REF':
                return 'i32'
            t = self.types[t.ref].t

    def inline_octets(self, t):
        """Capacity of an OCTET STRING held inline, or None."""
        if t.size is None:
            return None
        hi = self.cat.bound(t.size[1])
        if hi is None or hi > 256:
            return None
        return hi

    def named_bits_room(self, t):
        """Bits of room of a BIT STRING held inline (named bits, or a bounded size)."""
        if t.named:
            return max(v for _, v in t.named) + 1
        if t.size is not None:
            hi = self.cat.bound(t.size[1])
            if hi is not None and hi <= 4096:
                return hi
        return None

    def prim_ctype(self, t):
        k = t.kind
        if k == 'BOOLEAN':
            return 'ASN1BOOL'
        if k == 'INTEGER':
            return {'i32': 'ASN1INT', 'unsigned': 'ASN1UINT', 'u16': 'ASN1USINT',
                    'bigint': 'const char*'}[self.int_repr(t)]
        if k == 'ENUMERATED':
            return 'ASN1UINT'
        if k == 'NULL':
            return None
        if k == 'OID':
            return 'ASN1TObjId'
        if k == 'OCTETS':
            n = self.inline_octets(t)
            if n is not None:
                return 'struct { ASN1UINT numocts; ASN1OCTET data[%d]; }' % n
            return 'ASN1TDynOctStr'
        if k == 'BITS':
            room = self.named_bits_room(t)
            if room is not None:
                return 'struct { ASN1UINT numbits; ASN1OCTET data[%d]; }' % ((room + 7) // 8)
            return 'ASN1TDynBitStr'
        if k == 'STRING':
            if t.strname == 'BMPString':
                return 'Asn116BitCharString'
            if t.strname == 'UniversalString':
                return 'Asn132BitCharString'
            return 'const char*'
        if k == 'TIME':
            return 'const char*'
        if k == 'ANY':
            return 'ASN1OpenType'
        if k == 'OPEN':
            return 'Asn1TObject'
        raise ParseError('no C type for %s' % k)

    def ctype(self, t):
        if t.kind == 'REF':
            return 'ASN1T_%s' % t.ref
        return self.prim_ctype(t)

    def is_null(self, t):
        return self.cat.deref(t).kind == 'NULL'

    def held_inline_in_union(self, t):
        """A CHOICE keeps small values in its union, everything else through a pointer."""
        d = self.cat.deref(t)
        if d.kind in SCALAR_KINDS or d.kind == 'TIME':
            return True
        if d.kind == 'STRING' and d.strname not in ('BMPString', 'UniversalString'):
            return True
        return False

    def is_struct(self, name):
        """Data classes that are records of their own (with a context pointer)."""
        return self.shape(self.alias_target(name)) in ('record', 'choice', 'list', 'array')

    # Whether values of a type hold pointers into the heap (so that a free does something).
    def holds_pointers(self, t, seen=None):
        seen = seen or set()
        if t.kind == 'REF':
            if t.ref in seen:
                return True
            seen.add(t.ref)
            return self.holds_pointers(self.types[t.ref].t, seen)
        k = t.kind
        if k in ('BOOLEAN', 'ENUMERATED', 'NULL', 'OID'):
            return False
        if k == 'INTEGER':
            return self.int_repr(t) == 'bigint'
        if k == 'OCTETS':
            return self.inline_octets(t) is None
        if k == 'BITS':
            return self.named_bits_room(t) is None
        if k in ('SEQUENCE', 'SET'):
            return t.ext or any(self.holds_pointers(f.type, seen) for f in t.fields)
        if k in ('CHOICE', 'SEQOF', 'SETOF'):
            return True
        return True

    def has_free(self, name):
        return self.holds_pointers(self.types[name].t)

    def has_copy(self, name):
        return self.cat.deref(self.types[name].t).kind != 'NULL'

    # ==== tags ===========================================================================
    def tag_octet(self, word):
        return ((word >> 24) | (word & 0x1F)) & 0xFF

    def own_tag(self, name):
        """(tag word incl. form bit, explicit) a type writes when its tagging argument is 1,
        or None for an untagged CHOICE or open type."""
        nt = self.types[name]
        t = nt.t
        if t.tag is not None:
            explicit = self.cat.is_explicit(t, nt.module)
            untagged = self.untag(t)
            constructed = explicit or self.cat.constructed(untagged)
            return (t.tag.word() | (0x20000000 if constructed else 0), explicit)
        return None

    def untag(self, t):
        import copy
        u = copy.copy(t)
        u.tag = None
        return u

    def univ_tag(self, t):
        """Universal tag word of an untagged builtin type (form bit for constructed)."""
        if t.kind in ('STRING', 'TIME'):
            return STRING_TYPES.get(t.strname) or TIME_TYPES[t.strname]
        if t.kind == 'SETOF' and 'seqtag' in t.ann:
            return 0x20000010
        num = UNIV_TAG[t.kind]
        if t.kind in ('SEQUENCE', 'SET', 'SEQOF', 'SETOF'):
            return num | 0x20000000
        return num

    # ==== primitive calls ================================================================
    def str_num(self, t):
        return STRING_TYPES.get(t.strname) or TIME_TYPES[t.strname]

    def enc_call(self, t, lv, tg):
        if t.kind == 'REF':
            return 'asn1E_%s(pctxt, &%s, %s)' % (t.ref, lv, tg)
        k = t.kind
        if k == 'BOOLEAN':
            return 'xe_boolean(pctxt, &%s, %s)' % (lv, tg)
        if k == 'INTEGER':
            r = self.int_repr(t)
            if r == 'bigint':
                return 'xe_bigint(pctxt, %s, %s)' % (lv, tg)
            fn = {'i32': 'xe_integer', 'unsigned': 'xe_unsigned', 'u16': 'xe_uint16'}[r]
            return '%s(pctxt, &%s, %s)' % (fn, lv, tg)
        if k == 'ENUMERATED':
            return 'xe_enum(pctxt, (const ASN1ENUM*)&%s, %s)' % (lv, tg)
        if k == 'NULL':
            return 'xe_null(pctxt, %s)' % tg
        if k == 'OID':
            return 'xe_objid(pctxt, &%s, %s)' % (lv, tg)
        if k == 'OCTETS':
            return 'xe_octstr(pctxt, %s.data, %s.numocts, %s)' % (lv, lv, tg)
        if k == 'BITS':
            return 'xe_bitstr(pctxt, %s.data, %s.numbits, %s)' % (lv, lv, tg)
        if k in ('STRING', 'TIME'):
            if k == 'STRING' and t.strname == 'BMPString':
                return 'xe_16BitCharStr(pctxt, &%s, %s, 30)' % (lv, tg)
            if k == 'STRING' and t.strname == 'UniversalString':
                return 'xe_32BitCharStr(pctxt, &%s, %s, 28)' % (lv, tg)
            return 'xe_charstr(pctxt, %s, %s, %d)' % (lv, tg, self.str_num(t))
        if k in ('ANY', 'OPEN'):
            return 'xe_OpenType(pctxt, %s.data, %s.numocts)' % (lv, lv)
        raise ParseError('cannot encode %s' % k)

    def dec_call(self, c, t, lv, tg, ln):
        """Emits any preset and returns the call expression."""
        if t.kind == 'REF':
            return 'asn1D_%s(pctxt, &%s, %s, %s)' % (t.ref, lv, tg, ln)
        k = t.kind
        if k == 'BOOLEAN':
            return 'xd_boolean(pctxt, &%s, %s, %s)' % (lv, tg, ln)
        if k == 'INTEGER':
            r = self.int_repr(t)
            if r == 'bigint':
                return 'xd_bigint(pctxt, &%s, %s, %s)' % (lv, tg, ln)
            fn = {'i32': 'xd_integer', 'unsigned': 'xd_unsigned', 'u16': 'xd_uint16'}[r]
            return '%s(pctxt, &%s, %s, %s)' % (fn, lv, tg, ln)
        if k == 'ENUMERATED':
            return 'xd_enum(pctxt, (ASN1ENUM*)&%s, %s, %s)' % (lv, tg, ln)
        if k == 'NULL':
            return 'xd_null(pctxt, %s)' % tg
        if k == 'OID':
            return 'xd_objid(pctxt, &%s, %s, %s)' % (lv, tg, ln)
        if k == 'OCTETS':
            n = self.inline_octets(t)
            if n is not None:
                c('%s.numocts = %d;' % (lv, n))
                return 'xd_octstr_s(pctxt, %s.data, &%s.numocts, %s, %s)' % (lv, lv, tg, ln)
            return 'xd_octstr(pctxt, &%s.data, &%s.numocts, %s, %s)' % (lv, lv, tg, ln)
        if k == 'BITS':
            room = self.named_bits_room(t)
            if room is not None:
                c('%s.numbits = %d;' % (lv, room))
                return 'xd_bitstr_s(pctxt, %s.data, &%s.numbits, %s, %s)' % (lv, lv, tg, ln)
            return 'xd_bitstr(pctxt, &%s.data, &%s.numbits, %s, %s)' % (lv, lv, tg, ln)
        if k in ('STRING', 'TIME'):
            if k == 'STRING' and t.strname == 'BMPString':
                return 'xd_16BitCharStr(pctxt, &%s, %s, 30, %s)' % (lv, tg, ln)
            if k == 'STRING' and t.strname == 'UniversalString':
                return 'xd_32BitCharStr(pctxt, &%s, %s, 28, %s)' % (lv, tg, ln)
            return 'xd_charstr(pctxt, &%s, %s, %d, %s)' % (lv, tg, self.str_num(t), ln)
        if k in ('ANY', 'OPEN'):
            return 'xd_OpenType(pctxt, &%s.data, &%s.numocts)' % (lv, lv)
        raise ParseError('cannot decode %s' % k)

    # ==== constraints ====================================================================
    def constrained_view(self, t):
        """A reference with a constraint of its own (`macKey Gost28147-89-MAC (SIZE (4))`)
        is checked as the type it names, under the reference's constraint."""
        import copy as _copy
        d = _copy.copy(self.cat.deref(t))
        d.size, d.range, d.tag = t.size, t.range, None
        return d

    def check_code(self, c, t, lv, text):
        """Emits the constraint test of a builtin occurrence (both directions)."""
        if t.kind == 'REF':
            if t.size is None and t.range is None:
                return
            t = self.constrained_view(t)
        k = t.kind
        b = self.cat.bound
        if k == 'ENUMERATED' and t.named:
            lo = min(v for _, v in t.named)
            hi = max(v for _, v in t.named)
            if lo == 0:
                c('if (!(%s < %du)) return rtErrSetData(&pctxt->errInfo, RT_E_BAD_ENUM);' % (lv, hi + 1))
            else:
                c('if (%s < %du || %s > %du) return rtErrSetData(&pctxt->errInfo, RT_E_BAD_ENUM);'
                  % (lv, lo, lv, hi))
            return
        if k == 'INTEGER' and t.range is not None and self.int_repr(t) != 'bigint':
            lo, hi = b(t.range[0]), b(t.range[1])
            conds = []
            unsigned = self.int_repr(t) in ('unsigned', 'u16')
            if lo is not None and not (unsigned and lo == 0):
                conds.append('%s < %d' % (lv, lo) if not unsigned else '%s < %du' % (lv, lo))
            if hi is not None:
                conds.append('%s > %d' % (lv, hi) if not unsigned else '%s > %du' % (lv, hi))
            if conds:
                c('if (%s) return asn1data::constraintFail(pctxt, "%s", (int)%s);'
                  % (' || '.join(conds), text, lv))
            return
        if t.size is None:
            return
        lo, hi = b(t.size[0]), b(t.size[1])
        if k == 'STRING':
            if t.strname in ('BMPString', 'UniversalString'):
                ln = '%s.nchars' % lv
                text = text + '.nchars'
            elif t.strname == 'UTF8String':
                ln = 'asn1data::utf8Length(%s)' % lv
            else:
                ln = 'asn1data::textLength(%s)' % lv
        elif k == 'OCTETS':
            ln = '%s.numocts' % lv
            text = text + '.numocts' if text != '*pvalue' else 'pvalue->numocts'
        elif k == 'BITS':
            ln = '%s.numbits' % lv
            text = text + '.numbits' if text != '*pvalue' else 'pvalue->numbits'
        else:
            return
        self.size_check(c, ln, lo, hi, text, t.size[2] if len(t.size) > 2 else None)

    def size_check(self, c, ln, lo, hi, text, alts=None):
        if alts:
            conds = ['(ASN1UINT)%s != %du' % (ln, self.cat.bound(a)) for a in alts]
            c('if (%s) return asn1data::constraintFail(pctxt, "%s", (int)%s);'
              % (' && '.join(conds), text, ln))
            return
        conds = []
        if lo and lo > 0:
            conds.append('(ASN1UINT)%s < %du' % (ln, lo))
        if hi is not None:
            conds.append('(ASN1UINT)%s > %du' % (ln, hi))
        if conds:
            c('if (%s) return asn1data::constraintFail(pctxt, "%s", (int)%s);'
              % (' || '.join(conds), text, ln))

    def has_check(self, t):
        if t.kind == 'REF':
            if t.size is None and t.range is None:
                return False
            t = self.constrained_view(t)
        if t.kind == 'ENUMERATED':
            return bool(t.named)
        if t.kind == 'INTEGER':
            return t.range is not None
        return t.size is not None and t.kind in ('STRING', 'OCTETS', 'BITS')

    # ==== occurrence coding (field, alternative, element) ==================================
    def tag_of(self, t, module):
        """(word with form bit, explicit) of a tag written on this occurrence, or None."""
        if t.tag is None:
            return None
        explicit = self.cat.is_explicit(t, module)
        constructed = explicit or self.cat.constructed(self.untag(t))
        return (t.tag.word() | (0x20000000 if constructed else 0), explicit)

    def enc_occ(self, c, t, lv, module, text):
        """Encodes one occurrence, adding its length to ll0; failures return at once."""
        tg = self.tag_of(t, module)
        inner = self.untag(t)
        if self.has_check(inner):
            self.check_code(c, inner, lv, text)
        if tg is None:
            c('ll = %s;' % self.enc_call(inner, lv, 'ASN1EXPL'))
        else:
            word, explicit = tg
            c('ll = %s;' % self.enc_call(inner, lv, 'ASN1EXPL' if explicit else 'ASN1IMPL'))
            c('if (ll < 0) return rtErrSetData(&pctxt->errInfo, ll);')
            c('ll = xe_tag_len(pctxt, %s, ll);' % hexw(word))
        c('if (ll < 0) return rtErrSetData(&pctxt->errInfo, ll);')
        c('ll0 += ll;')

    # ==== type declarations ================================================================
    def data_decl(self, name):
        """The data class of a named type (struct text or a typedef)."""
        nt = self.types[name]
        t = nt.t
        sh = self.shape(name)
        c = Code()
        if sh == 'alias':
            c('typedef ASN1T_%s ASN1T_%s;' % (t.ref, name))
            return c.text()
        if sh == 'prim':
            k = t.kind
            if k == 'NULL':
                c('typedef void* ASN1T_%s;' % name)
            elif (k == 'OCTETS' and self.inline_octets(t) is not None) or \
                    (k == 'BITS' and self.named_bits_room(t) is not None):
                c.open('struct ASN1T_%s {' % name)
                if k == 'OCTETS':
                    c('ASN1UINT numocts;')
                    c('ASN1OCTET data[%d];' % self.inline_octets(t))
                else:
                    c('ASN1UINT numbits;')
                    c('ASN1OCTET data[%d];' % ((self.named_bits_room(t) + 7) // 8))
                c('ASN1T_%s() : %s(0) {}' % (name, 'numocts' if k == 'OCTETS' else 'numbits'))
                c.close('};')
            else:
                c('typedef %s ASN1T_%s;' % (self.prim_ctype(t), name))
            return c.text()
        if sh == 'list':
            c.open('struct ASN1T_%s : public ASN1TPDUSeqOfList {' % name)
            c('ASN1T_%s() {}' % name)
            c('ASN1T_%s(ASN1C_%s& control);' % (name, name))
            if self.has_free(name):
                c('~ASN1T_%s();' % name)
            c('ASN1T_%s(const ASN1T_%s&) = default;' % (name, name))
            c('ASN1T_%s& operator=(const ASN1T_%s&) = default;' % (name, name))
            c.close('};')
            return c.text()
        c.open('struct ASN1T_%s {' % name)
        c('asn1data::CtxRef mpContext;')
        if sh == 'array':
            c('ASN1UINT n;')
            c('%s* elem;' % self.ctype(t.elem))
        elif sh == 'choice':
            c('ASN1UINT t;')
            c.open('union {')
            any_member = False
            for f in t.fields:
                if self.is_null(f.type):
                    continue
                ct = self.ctype(self.untag(f.type))
                if self.held_inline_in_union(f.type):
                    c('%s %s;' % (ct, f.name))
                else:
                    c('%s* %s;' % (ct, f.name))
                any_member = True
            if not any_member:
                c('void* unused;')
            c.close('} u;')
        else:
            opts = [f for f in t.fields if f.optional]
            if opts:
                c('struct { %s} m;' % ''.join('unsigned %sPresent : 1; ' % f.name for f in opts))
            for f in t.fields:
                if self.is_null(f.type):
                    continue
                c('%s %s;' % (self.ctype(self.untag(f.type)), f.name))
                if f.type.table is not None and f.type.kind == 'OCTETS':
                    c('Asn1TObject %s;' % self.sibling(f))
            if t.ext:
                c('Asn1RTDList extElem1;')
        c('ASN1T_%s();' % name)
        c('ASN1T_%s(ASN1C_%s& control);' % (name, name))
        if self.has_free(name):
            c('~ASN1T_%s();' % name)
        c('ASN1T_%s(const ASN1T_%s&) = default;' % (name, name))
        c('ASN1T_%s& operator=(const ASN1T_%s&) = default;' % (name, name))
        c.close('};')
        return c.text()

    def sibling(self, f):
        return f.ann['sibling'][0] if f.ann.get('sibling') else f.name + 'Obj'

    def value_deps(self, name):
        """Named struct types a data class holds by value (must be complete before it)."""
        t = self.types[name].t
        sh = self.shape(name)
        out = []
        if sh == 'alias':
            out.append(t.ref)
        elif sh == 'record':
            for f in t.fields:
                if f.type.kind == 'REF':
                    out.append(f.type.ref)
        return out

    def control_base(self, name):
        nt = self.types[name]
        t = nt.t
        if t.ann.get('control'):
            return t.ann['control'][0]
        sh = self.shape(name)
        if sh == 'alias':
            return 'ASN1C_%s' % t.ref
        if sh == 'list':
            return 'ASN1CSeqOfList'
        if sh == 'prim':
            if t.kind == 'BITS':
                return 'ASN1CBitStr'
            if t.kind == 'TIME' and t.strname == 'GeneralizedTime':
                return 'ASN1CGeneralizedTime'
        return 'ASN1CType'

    def has_assign(self, name):
        sh = self.shape(self.alias_target(name))
        t = self.types[self.alias_target(name)].t
        return sh in ('list', 'array') or (sh == 'prim' and t.kind == 'BITS')

    def control_decl(self, name):
        c = Code()
        base = self.control_base(name)
        derived = self.shape(name) == 'alias'
        c.open('class ASN1C_%s : public %s {' % (name, base))
        if not derived:
            c.close('protected:')
            c.ind += 1
            c('ASN1T_%s* mpData;' % name)
        c.close('public:')
        c.ind += 1
        c('explicit ASN1C_%s(ASN1T_%s& data);' % (name, name))
        c('ASN1C_%s(ASN1MessageBufferIF& msgBuf, ASN1T_%s& data);' % (name, name))
        c('ASN1C_%s(ASN1C_%s& original);' % (name, name))
        c('virtual ~ASN1C_%s();' % name)
        if not derived:
            c('ASN1T_%s& getData() { return *mpData; }' % name)
            c('ASN1T_%s* getCopy(ASN1T_%s* pDstData = 0);' % (name, name))
            c('ASN1T_%s* newCopy();' % name)
            if self.has_assign(name):
                c('ASN1C_%s& operator=(ASN1C_%s& other);' % (name, name))
        c('virtual int EncodeTo(ASN1MessageBufferIF& msgBuf);')
        c('virtual int DecodeFrom(ASN1MessageBufferIF& msgBuf);')
        c.close('};')
        return c.text()

    def prototypes(self, name):
        c = Code()
        c('int asn1E_%s(ASN1CTXT* pctxt, ASN1T_%s* pvalue, ASN1TagType tagging);' % (name, name))
        c('int asn1D_%s(ASN1CTXT* pctxt, ASN1T_%s* pvalue, ASN1TagType tagging, int length);'
          % (name, name))
        if self.has_copy(name):
            c('void asn1Copy_%s(ASN1CTXT* pctxt, ASN1T_%s* pSrcValue, ASN1T_%s* pDstValue);'
              % (name, name, name))
        if self.has_free(name):
            c('void asn1Free_%s(ASN1CTXT* pctxt, ASN1T_%s* pvalue);' % (name, name))
        if self.table_field(name) is not None:
            c('int asn1DTC_%s(ASN1CTXT* pctxt, ASN1T_%s* pvalue);' % (name, name))
            c('int asn1ETC_%s(ASN1CTXT* pctxt, ASN1T_%s* pvalue);' % (name, name))
        return c.text()

    def named_values(self, name):
        t = self.types[name].t
        d = self.cat.deref(t) if t.kind == 'REF' else t
        if t.kind == 'REF' or not t.named:
            return ''
        c = Code()
        c.open('namespace %s {' % name)
        c('enum { %s };' % ', '.join('%s = %d' % (n, v) for n, v in t.named))
        c.close('}')
        return c.text()

    # ==== table constraints ====================================================================
    def table_field(self, name):
        """(field, form, element type of a list) of a table-constrained record, or None."""
        t = self.types[name].t
        if t.kind not in ('SEQUENCE', 'SET'):
            return None
        for f in t.fields:
            ft = f.type
            if ft.table is not None:
                return (f, 'octets' if ft.kind == 'OCTETS' else 'open', None)
            if ft.kind == 'REF':
                inner = self.types[ft.ref].t
                if inner.kind in ('SEQOF', 'SETOF') and inner.elem.table is not None:
                    return (f, 'list', inner.elem)
        return None

    def table_info(self, name):
        f, form, elem = self.table_field(name)
        table = f.type.table if form != 'list' else elem.table
        cls, _, setname, at = table
        suffix = CLASS_SHAPES[cls][0]
        return f, form, cls, setname, at, suffix

    def emit_dtc(self, c, name):
        f, form, cls, setname, at, suffix = self.table_info(name)
        c.open('int asn1DTC_%s(ASN1CTXT* pctxt, ASN1T_%s* pvalue) {' % (name, name))
        c('%s* set = %s::instance(pctxt);' % (setname, setname))
        c('%s* object = set->findObject(pvalue->%s);' % (cls, at))
        if form == 'octets':
            sib = self.sibling(f)
            c('pvalue->%s.data = pvalue->%s.data;' % (sib, f.name))
            c('pvalue->%s.numocts = pvalue->%s.numocts;' % (sib, f.name))
            c('pvalue->%s.decoded = 0;' % sib)
            gate = 'pvalue->%s.numocts == 0' % f.name
            if f.optional:
                gate = '!pvalue->m.%sPresent || %s' % (f.name, gate)
            c('if (object == 0 || %s) return 0;' % gate)
            c('int stat = xd_setp(pctxt, pvalue->%s.data, (int)pvalue->%s.numocts, 0, 0);'
              % (sib, sib))
            c('if (stat < 0) return rtErrSetData(&pctxt->errInfo, stat);')
            c('stat = object->decodeBER%s(pctxt, pvalue->%s);' % (suffix, sib))
            c('if (stat < 0) return rtErrSetData(&pctxt->errInfo, stat);')
        elif form == 'open':
            gate = '!pvalue->m.%sPresent' % f.name if f.optional else None
            c('if (object == 0%s) return 0;' % (' || ' + gate if gate else ''))
            c('int stat = asn1data::pointAtValue(pctxt, pvalue->%s.data, pvalue->%s.numocts);' % (f.name, f.name))
            c('if (stat == 0) stat = object->decodeBER%s(pctxt, pvalue->%s);' % (suffix, f.name))
            c('if (stat < 0) return rtErrSetData(&pctxt->errInfo, stat);')
        else:
            c('if (object == 0 || pvalue->%s.count == 0) return 0;' % f.name)
            c.open('for (Asn1RTDListNode* node = pvalue->%s.head; node != 0; node = node->next) {' % f.name)
            c('Asn1TObject* value = (Asn1TObject*)node->data;')
            c('int stat = asn1data::pointAtValue(pctxt, value->data, value->numocts);')
            c('if (stat == 0) stat = object->decodeBER%s(pctxt, *value);' % suffix)
            c('if (stat < 0) return rtErrSetData(&pctxt->errInfo, stat);')
            c.close()
        c('return 0;')
        c.close()
        c()
        c.open('int asn1ETC_%s(ASN1CTXT* pctxt, ASN1T_%s* pvalue) {' % (name, name))
        c('%s* set = %s::instance(pctxt);' % (setname, setname))
        c('%s* object = set->findObject(pvalue->%s);' % (cls, at))
        if form == 'octets':
            sib = self.sibling(f)
            gate = 'pvalue->%s.decoded == 0' % sib
            if f.optional:
                gate = '!pvalue->m.%sPresent || %s' % (f.name, gate)
            c('if (object == 0 || %s) return 0;' % gate)
            c('int stat = xe_setp(pctxt, 0, 0);')
            c('if (stat == 0) stat = object->encodeBER%s(pctxt, pvalue->%s);' % (suffix, sib))
            c('if (stat < 0) return rtErrSetData(&pctxt->errInfo, stat);')
            c('const ASN1OCTET* data = asn1data::keepEncoding(pctxt, stat);')
            c('if (data == 0) return rtErrSetData(&pctxt->errInfo, RT_E_NO_MEMORY);')
            c('pvalue->%s.numocts = pvalue->%s.numocts = (ASN1UINT)stat;' % (sib, f.name))
            c('pvalue->%s.data = pvalue->%s.data = data;' % (sib, f.name))
        elif form == 'open':
            gate = '!pvalue->m.%sPresent' % f.name if f.optional else None
            c('if (object == 0%s) return 0;' % (' || ' + gate if gate else ''))
            c('int stat = xe_setp(pctxt, 0, 0);')
            c('if (stat == 0) stat = object->encodeBER%s(pctxt, pvalue->%s);' % (suffix, f.name))
            c('if (stat < 0) return rtErrSetData(&pctxt->errInfo, stat);')
            c('const ASN1OCTET* data = asn1data::keepEncoding(pctxt, stat);')
            c('if (data == 0) return rtErrSetData(&pctxt->errInfo, RT_E_NO_MEMORY);')
            c('pvalue->%s.numocts = (ASN1UINT)stat;' % f.name)
            c('pvalue->%s.data = data;' % f.name)
        else:
            c('if (object == 0 || pvalue->%s.count == 0) return 0;' % f.name)
            c.open('for (Asn1RTDListNode* node = pvalue->%s.head; node != 0; node = node->next) {' % f.name)
            c('Asn1TObject* value = (Asn1TObject*)node->data;')
            c('int stat = xe_setp(pctxt, 0, 0);')
            c('if (stat == 0) stat = object->encodeBER%s(pctxt, *value);' % suffix)
            c('if (stat < 0) return rtErrSetData(&pctxt->errInfo, stat);')
            c('const ASN1OCTET* data = asn1data::keepEncoding(pctxt, stat);')
            c('if (data == 0) return rtErrSetData(&pctxt->errInfo, RT_E_NO_MEMORY);')
            c('value->numocts = (ASN1UINT)stat;')
            c('value->data = data;')
            c.close()
        c('return 0;')
        c.close()
        c()

    # ==== encoders ==================================================================================
    def emit_encoder(self, c, name):
        nt = self.types[name]
        t = nt.t
        sh = self.shape(name)
        own = self.own_tag(name)
        c.open('int asn1E_%s(ASN1CTXT* pctxt, ASN1T_%s* pvalue, ASN1TagType tagging) {' % (name, name))
        if sh == 'alias':
            target = t.ref
            if own is None:
                if self.has_check(t):
                    self.check_code(c, t, '(*pvalue)', '*pvalue')
                c('return asn1E_%s(pctxt, pvalue, tagging);' % target)
            else:
                word, explicit = own
                c('int ll = asn1E_%s(pctxt, pvalue, %s);' % (target, 'ASN1EXPL' if explicit else 'ASN1IMPL'))
                c('if (ll < 0) return rtErrSetData(&pctxt->errInfo, ll);')
                c('if (tagging == ASN1EXPL) ll = xe_tag_len(pctxt, %s, ll);' % hexw(word))
                c('return ll;')
            c.close()
            c()
            return
        c('int ll = 0;')
        if sh == 'prim':
            u = self.untag(t)
            if self.has_check(u):
                self.check_code(c, u, '(*pvalue)', '*pvalue')
            if own is None:
                c('ll = %s;' % self.enc_call(u, '(*pvalue)', 'tagging'))
                c('if (ll < 0) return rtErrSetData(&pctxt->errInfo, ll);')
            else:
                word, explicit = own
                c('ll = %s;' % self.enc_call(u, '(*pvalue)', 'ASN1EXPL' if explicit else 'ASN1IMPL'))
                c('if (ll < 0) return rtErrSetData(&pctxt->errInfo, ll);')
                c('if (tagging == ASN1EXPL) ll = xe_tag_len(pctxt, %s, ll);' % hexw(word))
            c('return ll;')
            c.close()
            c()
            return
        c('int ll0 = 0;')
        (c('(void)ll;'))
        if sh == 'choice':
            n = len(t.fields)
            c('if (pvalue->t < 1 || pvalue->t > %d) return rtErrSetData(&pctxt->errInfo, RT_E_BAD_CHOICE);' % n)
            c.open('switch (pvalue->t) {')
            for i, f in enumerate(t.fields, 1):
                c.open('case %d: {' % i)
                if self.is_null(f.type):
                    lv = '*(ASN1OCTET*)0'
                    self.enc_occ_null(c, f.type, nt.module)
                else:
                    lv = 'pvalue->u.%s' % f.name if self.held_inline_in_union(f.type) \
                        else '(*pvalue->u.%s)' % f.name
                    self.enc_occ(c, f.type, lv, nt.module, 'pvalue->u.%s' % f.name)
                c('break;')
                c.close()
            c('default: return rtErrSetData(&pctxt->errInfo, RT_E_BAD_CHOICE);')
            c.close()
        elif sh in ('list', 'array'):
            self.emit_list_encoder_body(c, name, t, nt.module)
        else:
            tf = self.table_field(name)
            if tf is not None:
                c('ASN1CTXT saved;')
                c('rtCopyContext(&saved, pctxt);')
                c('ll = asn1ETC_%s(pctxt, pvalue);' % name)
                c('if (ll < 0) return ll;')
                c('rtCopyContext(pctxt, &saved);')
            if t.ext:
                c.open('if (pvalue->extElem1.count > 0) {')
                c('ll = xe_OpenTypeExt(pctxt, &pvalue->extElem1);')
                c('if (ll < 0) return rtErrSetData(&pctxt->errInfo, ll);')
                c('ll0 += ll;')
                c.close()
            for f in reversed(t.fields):
                lv = 'pvalue->%s' % f.name
                cond = None
                if f.optional:
                    cond = 'pvalue->m.%sPresent' % f.name
                elif f.default is not None:
                    cond = self.default_differs(f, lv)
                if cond:
                    c.open('if (%s) {' % cond)
                if self.is_null(f.type):
                    self.enc_occ_null(c, f.type, nt.module)
                else:
                    self.enc_occ(c, f.type, lv, nt.module, 'pvalue->%s' % f.name)
                if cond:
                    c.close()
        if own is not None:
            word = own[0]
        elif sh == 'choice':
            word = None
        else:
            word = self.univ_tag(t)
        if own is not None and own[1] and sh != 'choice':
            # An EXPLICIT tag on the type itself wraps its universal encoding.
            c('ll0 = xe_tag_len(pctxt, %s, ll0);' % hexw(self.univ_tag(t)))
            c('if (ll0 < 0) return rtErrSetData(&pctxt->errInfo, ll0);')
        if word is not None:
            c('if (tagging == ASN1EXPL) ll0 = xe_tag_len(pctxt, %s, ll0);' % hexw(word))
        c('return ll0;')
        c.close()
        c()

    def enc_occ_null(self, c, t, module):
        tg = self.tag_of(t, module)
        inner = self.untag(t)
        if inner.kind == 'REF':
            c('ll = asn1E_%s(pctxt, 0, %s);' % (inner.ref, 'ASN1IMPL' if tg and not tg[1] else 'ASN1EXPL'))
        else:
            c('ll = xe_null(pctxt, %s);' % ('ASN1IMPL' if tg and not tg[1] else 'ASN1EXPL'))
        c('if (ll < 0) return rtErrSetData(&pctxt->errInfo, ll);')
        if tg is not None:
            c('ll = xe_tag_len(pctxt, %s, ll);' % hexw(tg[0]))
            c('if (ll < 0) return rtErrSetData(&pctxt->errInfo, ll);')
        c('ll0 += ll;')

    def default_differs(self, f, lv):
        d = self.cat.deref(f.type)
        v = f.default
        if d.kind == 'BOOLEAN':
            return lv if v is False else '%s != 1' % lv
        if d.kind in ('INTEGER', 'ENUMERATED'):
            if isinstance(v, tuple):
                named = dict(d.named)
                if v[1] in named:
                    v = named[v[1]]
                else:
                    v = self.cat.bound(v)
            if d.kind == 'INTEGER' and self.int_repr(f.type) == 'bigint':
                return '%s != k%sDefault && rtBigIntStrCompare(pctxt, %s, k%sDefault) != 0' % (
                    lv, self.default_name(f), lv, self.default_name(f))
            return '%s != %d' % (lv, v)
        raise ParseError('DEFAULT of %s is not supported (field %s)' % (d.kind, f.name))

    def default_name(self, f):
        owner = getattr(f, 'owner', '')
        return '%s_%s' % (owner, f.name)

    def emit_list_encoder_body(self, c, name, t, module):
        sh = self.shape(name)
        elem = t.elem
        etype = self.ctype(self.untag(elem))
        count = 'pvalue->count' if sh == 'list' else 'pvalue->n'
        text = 'pvalue->count' if sh == 'list' else 'pvalue->n'
        if t.size is not None:
            lo, hi = self.cat.bound(t.size[0]), self.cat.bound(t.size[1])
            self.size_check(c, count, lo, hi, text)
        is_set = t.kind == 'SETOF'
        if is_set:
            c('Asn1RTSList sorted;')
            c('rtSListInitEx(pctxt, &sorted);')
        if sh == 'list':
            c.open('for (Asn1RTDListNode* node = pvalue->tail; node != 0; node = node->prev) {')
            c('%s& element = *(%s*)node->data;' % (etype, etype))
        else:
            c.open('for (ASN1UINT xx1 = pvalue->n; xx1-- > 0;) {')
            c('%s& element = pvalue->elem[xx1];' % etype)
        self.enc_occ(c, elem, 'element', module, 'pvalue->elem[xx1]')
        if is_set:
            c('Asn1BufLocDescr* where = (Asn1BufLocDescr*)rtMemHeapAlloc(&pctxt->typeHeap, (int)sizeof(Asn1BufLocDescr));')
            c('if (where == 0) return rtErrSetData(&pctxt->errInfo, RT_E_NO_MEMORY);')
            c('xe_getBufLocDescr(pctxt, (ASN1UINT)ll, where);')
            c('rtSListAppend(&sorted, where);')
        c.close()
        if is_set:
            c('ll0 = xe_derCanonicalSort(pctxt, &sorted);')
            c('if (ll0 < 0) return rtErrSetData(&pctxt->errInfo, ll0);')

    # ==== decoders ======================================================================================
    def emit_decoder(self, c, name):
        nt = self.types[name]
        t = nt.t
        sh = self.shape(name)
        own = self.own_tag(name)
        eoc = 'eoc' in t.ann
        c.open('int asn1D_%s(ASN1CTXT* pctxt, ASN1T_%s* pvalue, ASN1TagType tagging, int length) {'
               % (name, name))
        if sh == 'alias':
            target = t.ref
            if own is None:
                c('int stat = asn1D_%s(pctxt, pvalue, tagging, length);' % target)
                if self.has_check(t):
                    c('if (stat != 0) return stat;')
                    self.check_code(c, t, '(*pvalue)', '*pvalue')
                c('return stat;')
            else:
                word, explicit = own
                c('int stat;')
                c.open('if (tagging == ASN1EXPL) {')
                c('stat = xd_match1(pctxt, 0x%02x, &length);' % self.tag_octet(word))
                c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
                c.close()
                c('stat = asn1D_%s(pctxt, pvalue, %s, length);' % (target, 'ASN1EXPL' if explicit else 'ASN1IMPL'))
                c('if (stat != 0) return stat;')
                if eoc:
                    c('if (tagging == ASN1EXPL && length == RT_INDEFINITE_LENGTH) return asn1data::consumeEOC(pctxt);')
                c('return 0;')
            c.close()
            c()
            return
        c('int stat = 0;')
        if own is not None:
            word, explicit = own
            if sh != 'prim' or explicit:
                c.open('if (tagging == ASN1EXPL) {')
                c('stat = xd_match1(pctxt, 0x%02x, &length);' % self.tag_octet(word))
                c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
                c.close()
        if sh == 'prim':
            u = self.untag(t)
            if own is None:
                tg = 'tagging'
            elif own[1]:
                tg = 'ASN1EXPL'
            else:
                tg = 'tagging'
                if own is not None:
                    # An IMPLICIT tag on a primitive type: its own tag replaces the universal one.
                    c.open('if (tagging == ASN1EXPL) {')
                    c('stat = xd_match1(pctxt, 0x%02x, &length);' % self.tag_octet(own[0]))
                    c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
                    c.close()
                    tg = 'ASN1IMPL'
            call = self.dec_call(c, u, '(*pvalue)', tg, 'length')
            c('stat = %s;' % call)
            c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
            if self.has_check(u):
                self.check_code(c, u, '(*pvalue)', '*pvalue')
            if own is not None and own[1] and eoc:
                c('if (tagging == ASN1EXPL && length == RT_INDEFINITE_LENGTH) return asn1data::consumeEOC(pctxt);')
            c('return 0;')
            c.close()
            c()
            return
        if sh == 'choice':
            self.emit_choice_decoder_body(c, name, t, nt.module, eoc)
        else:
            if own is None:
                c.open('if (tagging == ASN1EXPL) {')
                c('stat = xd_match1(pctxt, 0x%02x, &length);' % self.tag_octet(self.univ_tag(t)))
                c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
                c.close()
            elif not own[1]:
                pass  # IMPLICIT: the own tag was matched above in place of the universal one
            else:
                # An EXPLICIT tag on the type: the universal header follows inside it.
                c('int outer = length;')
                c('stat = xd_match1(pctxt, 0x%02x, &length);' % self.tag_octet(self.univ_tag(t)))
                c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
            if sh in ('list', 'array'):
                self.emit_list_decoder_body(c, name, t, nt.module)
            elif t.kind == 'SET':
                self.emit_set_decoder_body(c, name, t, nt.module, eoc)
            else:
                self.emit_seq_decoder_body(c, name, t, nt.module, eoc)
            if eoc:
                c('if (tagging == ASN1EXPL && length == RT_INDEFINITE_LENGTH) {')
                c('    stat = asn1data::consumeEOC(pctxt);')
                c('    if (stat != 0) return stat;')
                c('}')
            if own is not None and own[1]:
                c('(void)outer;')
        c('return 0;')
        c.close()
        c()

    def emit_seq_decoder_body(self, c, name, t, module, eoc):
        opts = [f for f in t.fields if f.optional]
        if opts:
            c('memset(&pvalue->m, 0, sizeof(pvalue->m));')
        for f in t.fields:
            if f.default is not None:
                self.emit_default_preset(c, f)
        if t.ext:
            c('rtDListInit(&pvalue->extElem1);')
        required = [f for f in t.fields if not f.optional and f.default is None]
        c('ASN1DecodeBlock block = { pctxt->bufIndex, length };')
        c('int reqcnt = 0;')
        c('(void)reqcnt;')
        c.open('for (int seqx = 0; !asn1data::atEnd(pctxt, &block); ++seqx) {')
        c.open('switch (seqx) {')
        for i, f in enumerate(t.fields):
            c.open('case %d: {' % i)
            self.emit_field_decode(c, f, module, eoc)
            c('break;')
            c.close()
        if t.ext:
            c.open('case %d:' % len(t.fields))
            c('stat = xd_OpenTypeExt(pctxt, &block, 0xffffffffu, &pvalue->extElem1);')
            c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
            c('break;')
            c.ind -= 1
            c('default: return rtErrSetData(&pctxt->errInfo, RT_E_EXTRA_ELEMENT);')
        else:
            c('default: return rtErrSetData(&pctxt->errInfo, RT_E_EXTRA_ELEMENT);')
        c.close()
        c.close()
        if required:
            c('if (reqcnt < %d) return rtErrSetData(&pctxt->errInfo, RT_E_MISSING_ELEMENT);' % len(required))
        if self.table_field(name) is not None:
            c('ASN1CTXT saved;')
            c('rtCopyContext(&saved, pctxt);')
            c('stat = asn1DTC_%s(pctxt, pvalue);' % name)
            c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
            c('rtCopyContext(pctxt, &saved);')

    def emit_default_preset(self, c, f):
        lv = 'pvalue->%s' % f.name
        d = self.cat.deref(f.type)
        v = f.default
        if d.kind == 'BOOLEAN':
            c('%s = %d;' % (lv, 1 if v else 0))
        elif d.kind == 'INTEGER' and self.int_repr(f.type) == 'bigint':
            c('%s = k%sDefault;' % (lv, self.default_name(f)))
        elif d.kind in ('INTEGER', 'ENUMERATED'):
            if isinstance(v, tuple):
                named = dict(d.named)
                v = named[v[1]] if v[1] in named else self.cat.bound(v)
            c('%s = %d;' % (lv, v))
        else:
            raise ParseError('DEFAULT of %s not supported' % d.kind)

    def field_value(self, f, module, eoc, tagvar):
        pass

    def emit_field_decode(self, c, f, module, eoc):
        ft = f.type
        lv = 'pvalue->%s' % f.name
        tg = self.tag_of(ft, module)
        inner = self.untag(ft)
        null = self.is_null(ft)
        optional = f.optional or f.default is not None
        done = ('pvalue->m.%sPresent = 1;' % f.name) if f.optional else (
            None if f.default is not None else '++reqcnt;')
        if tg is None and ft.kind == 'REF' and self.own_tag(ft.ref) is not None and \
                (self.own_tag(ft.ref)[0] & 0xC0000000) != 0:
            # The type carries a context tag of its own: the same octet test, then the
            # type reads its tag itself.
            octet = self.tag_octet(self.own_tag(ft.ref)[0]) & 0xDF
            c.open('if (asn1data::atTag(pctxt, 0x%02x)) {' % octet)
            self.emit_value_decode(c, ft, lv, 'ASN1EXPL', 'length', null)
            if f.optional:
                c(done)
            c.close()
            if not optional:
                c('++reqcnt;')
            return
        if tg is not None and (tg[0] & 0xC0000000) != 0:
            # A context (or application) tag: one octet compared under 0xdf.
            octet = self.tag_octet(tg[0]) & 0xDF
            c.open('if (asn1data::atTag(pctxt, 0x%02x)) {' % octet)
            c('int len;')
            c('stat = xd_Tag1AndLen(pctxt, &len);')
            c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
            itg = 'ASN1EXPL' if tg[1] else 'ASN1IMPL'
            self.emit_value_decode(c, inner, lv, itg, 'len', null)
            if eoc:
                c('if (len == RT_INDEFINITE_LENGTH) { stat = asn1data::consumeEOC(pctxt); if (stat != 0) return stat; }')
            if f.optional:
                c(done)
            c.close()
            if not optional:
                c('++reqcnt;')
            return
        if optional:
            first = self.cat.first_tags(ft, module)
            inner_d = self.cat.deref(ft)
            if inner_d.kind == 'CHOICE' and first:
                # A CHOICE has no tag of its own: look at the next tag before reading it.
                c('ASN1TAG next = 0;')
                c('int nextlen = 0;')
                c('stat = xd_tag_len(pctxt, &next, &nextlen, 0);')
                c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
                c.open('if (%s) {' % self.tag_test('next', first))
                self.emit_value_decode(c, ft, lv, 'ASN1EXPL', 'length', null)
                if done:
                    c(done)
                c.close()
                return
            if null:
                call = self.null_call(inner, 'ASN1EXPL')
            else:
                call = self.dec_call(c, ft, lv, 'ASN1EXPL', 'length')
            c('stat = %s;' % call)
            c.open('if (stat == RT_E_TAG_MISMATCH) {')
            c('rtErrReset(&pctxt->errInfo);')
            c.close('}')
            c.open('else if (stat != 0) {')
            c('return rtErrSetData(&pctxt->errInfo, stat);')
            c.close('}')
            c.open('else {')
            if self.has_check(inner) and not null:
                self.check_code(c, inner, lv, lv)
            if done:
                c(done)
            c.close()
            return
        self.emit_value_decode(c, ft, lv, 'ASN1EXPL', 'length', null)
        c('++reqcnt;')

    def null_call(self, inner, tg):
        if inner.kind == 'REF':
            return 'asn1D_%s(pctxt, 0, %s, 0)' % (inner.ref, tg)
        return 'xd_null(pctxt, %s)' % tg

    def emit_value_decode(self, c, t, lv, tg, ln, null=False):
        inner = self.untag(t) if t.tag is not None else t
        if null:
            call = self.null_call(inner, tg)
        else:
            call = self.dec_call(c, inner, lv, tg, ln)
        c('stat = %s;' % call)
        c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
        if not null and self.has_check(inner):
            self.check_code(c, inner, lv, lv)

    def tag_test(self, var, first):
        parts = []
        for word, both in first:
            if both:
                parts.append('(%s & 0xdfffffffu) == %s' % (var, hexw(word & 0xDFFFFFFF)))
            else:
                parts.append('%s == %s' % (var, hexw(word)))
        return ' || '.join(parts)

    def emit_set_decoder_body(self, c, name, t, module, eoc):
        opts = [f for f in t.fields if f.optional]
        if opts:
            c('memset(&pvalue->m, 0, sizeof(pvalue->m));')
        for f in t.fields:
            if f.default is not None:
                self.emit_default_preset(c, f)
        required = [f for f in t.fields if not f.optional and f.default is None]
        c('ASN1DecodeBlock block = { pctxt->bufIndex, length };')
        c('ASN1UINT seen = 0;')
        c('int reqcnt = 0;')
        c.open('while (!asn1data::atEnd(pctxt, &block)) {')
        c('ASN1TAG tag = 0;')
        c('int len = 0;')
        c('stat = xd_tag_len(pctxt, &tag, &len, RT_MATCH_ADVANCE);')
        c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
        for i, f in enumerate(t.fields):
            ft = f.type
            first = self.cat.first_tags(ft, module)
            if not first or len(first) != 1:
                raise ParseError('%s.%s: a SET field needs one tag' % (name, f.name))
            cond = self.tag_test('tag', first)
            c.open('%sif (%s) {' % ('' if i == 0 else 'else ', cond))
            lv = 'pvalue->%s' % f.name
            tg = self.tag_of(ft, module)
            inner = self.untag(ft)
            if tg is not None and tg[1]:
                itg = 'ASN1EXPL'
            else:
                itg = 'ASN1IMPL'
            self.emit_value_decode(c, inner, lv, itg, 'len', self.is_null(ft))
            c('if (seen & 0x%xu) return rtErrSetData(&pctxt->errInfo, RT_E_SET_DUPLICATE);' % (1 << i))
            c('seen |= 0x%xu;' % (1 << i))
            if f.optional:
                c('pvalue->m.%sPresent = 1;' % f.name)
            elif f.default is None:
                c('++reqcnt;')
            c.close()
        c.open('else {')
        c('xu_addTagErrParm(pctxt, tag);')
        c('return rtErrSetData(&pctxt->errInfo, RT_E_SET_UNKNOWN_TAG);')
        c.close()
        c.close()
        c('(void)reqcnt;')
        if required:
            c('if (reqcnt < %d) return rtErrSetData(&pctxt->errInfo, RT_E_MISSING_ELEMENT);' % len(required))

    def emit_choice_decoder_body(self, c, name, t, module, eoc):
        c('ASN1TAG tag = 0;')
        c('int len = 0;')
        c('RtBufferState start;')
        c('xu_SaveBufferState(pctxt, &start);')
        c('stat = xd_tag_len(pctxt, &tag, &len, RT_MATCH_ADVANCE);')
        c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
        first_branch = True
        for i, f in enumerate(t.fields, 1):
            ft = f.type
            first = self.cat.first_tags(ft, module)
            if not first:
                raise ParseError('%s.%s: an open type cannot be a CHOICE alternative' % (name, f.name))
            cond = self.tag_test('tag', first)
            c.open('%sif (%s) {' % ('' if first_branch else 'else ', cond))
            first_branch = False
            tg = self.tag_of(ft, module)
            inner = self.untag(ft)
            null = self.is_null(ft)
            d = self.cat.deref(ft)
            nested_choice = tg is None and d.kind == 'CHOICE'
            if null:
                lv = None
            elif self.held_inline_in_union(ft):
                lv = 'pvalue->u.%s' % f.name
            else:
                ct = self.ctype(inner)
                c('pvalue->u.%s = (%s*)rtMemHeapAllocZ(&pctxt->typeHeap, (int)sizeof(%s));'
                  % (f.name, ct, ct))
                c('if (pvalue->u.%s == 0) return rtErrSetData(&pctxt->errInfo, RT_E_NO_MEMORY);' % f.name)
                lv = '(*pvalue->u.%s)' % f.name
            if nested_choice:
                c('xu_RestoreBufferState(pctxt, &start);')
                self.emit_value_decode(c, inner, lv, 'ASN1EXPL', '0', null)
            else:
                itg = 'ASN1EXPL' if (tg is not None and tg[1]) else 'ASN1IMPL'
                self.emit_value_decode(c, inner, lv, itg, 'len', null)
                if eoc:
                    c('if (len == RT_INDEFINITE_LENGTH) { stat = asn1data::consumeEOC(pctxt); if (stat != 0) return stat; }')
            c('pvalue->t = %d;' % i)
            c.close()
        c.open('else {')
        c('xu_addTagErrParm(pctxt, tag);')
        c('return rtErrSetData(&pctxt->errInfo, RT_E_BAD_CHOICE);')
        c.close()

    def emit_list_decoder_body(self, c, name, t, module):
        sh = self.shape(name)
        elem = t.elem
        etype = self.ctype(self.untag(elem))
        c('ASN1DecodeBlock block = { pctxt->bufIndex, length };')
        if sh == 'list':
            c('rtDListInit(pvalue);')
            c.open('while (!asn1data::atEnd(pctxt, &block)) {')
            c('if (pvalue->count >= 0x7fffffffu) return rtErrSetData(&pctxt->errInfo, RT_E_EXTRA_ELEMENT);')
            c('Asn1RTDListNode* node = (Asn1RTDListNode*)rtMemHeapAllocZ(&pctxt->typeHeap, (int)(sizeof(Asn1RTDListNode) + sizeof(%s)));' % etype)
            c('if (node == 0) return rtErrSetData(&pctxt->errInfo, RT_E_NO_MEMORY);')
            c('%s& element = *(%s*)(node + 1);' % (etype, etype))
            self.emit_value_decode_occ(c, elem, 'element', module, 'pvalue->elem[xx1]')
            c('rtDListAppendNode(pctxt, pvalue, &element);')
            c.close()
            count = 'pvalue->count'
        else:
            c('int n = 0;')
            c('stat = xd_count(pctxt, length, &n);')
            c('if (stat != 0) return stat;')
            c('if ((unsigned long long)n * sizeof(%s) > 0x7fffffffull) return RT_E_NO_MEMORY;' % etype)
            c('pvalue->elem = (%s*)rtMemHeapAlloc(&pctxt->typeHeap, (int)(n * sizeof(%s)));' % (etype, etype))
            c('if (pvalue->elem == 0 && n > 0) return RT_E_NO_MEMORY;')
            c('ASN1UINT xx1 = 0;')
            c.open('while (!asn1data::atEnd(pctxt, &block)) {')
            c('if (xx1 >= (ASN1UINT)n) return rtErrSetData(&pctxt->errInfo, RT_E_EXTRA_ELEMENT);')
            c('%s& element = pvalue->elem[xx1];' % etype)
            c('new (&element) %s();' % etype)
            self.emit_value_decode_occ(c, elem, 'element', module, 'pvalue->elem[xx1]')
            c('++xx1;')
            c.close()
            c('pvalue->n = xx1;')
            count = 'pvalue->n'
        if t.size is not None:
            lo, hi = self.cat.bound(t.size[0]), self.cat.bound(t.size[1])
            self.size_check(c, count, lo, hi, count)

    def emit_value_decode_occ(self, c, t, lv, module, text):
        tg = self.tag_of(t, module)
        inner = self.untag(t)
        if tg is None:
            call = self.dec_call(c, inner, lv, 'ASN1EXPL', 'length')
            c('stat = %s;' % call)
            c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
        else:
            c('int len = 0;')
            c('stat = xd_match1(pctxt, 0x%02x, &len);' % self.tag_octet(tg[0]))
            c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
            call = self.dec_call(c, inner, lv, 'ASN1EXPL' if tg[1] else 'ASN1IMPL', 'len')
            c('stat = %s;' % call)
            c('if (stat != 0) return rtErrSetData(&pctxt->errInfo, stat);')
        if self.has_check(inner):
            self.check_code(c, inner, lv, text)

    # ==== copy and free ===================================================================================
    def copy_occ(self, c, t, src, dst):
        """Deep copy of one value (no tags matter here)."""
        if t.kind == 'REF':
            if self.has_copy(t.ref):
                c('asn1Copy_%s(pctxt, &%s, &%s);' % (t.ref, src, dst))
            return
        k = t.kind
        if k in SCALAR_KINDS and not (k == 'INTEGER' and self.int_repr(t) == 'bigint'):
            c('%s = %s;' % (dst, src))
        elif k == 'INTEGER' or k == 'TIME' or (k == 'STRING' and t.strname not in ('BMPString', 'UniversalString')):
            c('{ char* text = 0; rtCopyCharStr(pctxt, %s, &text); %s = text; }' % (src, dst))
        elif k == 'STRING' and t.strname == 'BMPString':
            c('rtCopy16BitCharStr(pctxt, &%s, &%s);' % (src, dst))
        elif k == 'STRING':
            c('rtCopy32BitCharStr(pctxt, &%s, &%s);' % (src, dst))
        elif k == 'OID':
            c('rtCopyOID(pctxt, &%s, &%s);' % (src, dst))
        elif k == 'OCTETS':
            if self.inline_octets(t) is not None:
                c('rtCopyOctStr(pctxt, %s.numocts, %s.data, &%s.numocts, %s.data);' % (src, src, dst, dst))
            else:
                c('rtCopyDynOctStr(pctxt, &%s, &%s);' % (src, dst))
        elif k == 'BITS':
            if self.named_bits_room(t) is not None:
                c('rtCopyBitStr(pctxt, %s.numbits, %s.data, &%s.numbits, %s.data);' % (src, src, dst, dst))
            else:
                c('rtCopyDynBitStr(pctxt, &%s, &%s);' % (src, dst))
        elif k == 'ANY':
            c('rtCopyOpenType(pctxt, &%s, &%s);' % (src, dst))
        elif k == 'OPEN':
            c('rtCopyOpenType(pctxt, (const ASN1OpenType*)&%s, (ASN1OpenType*)&%s);' % (src, dst))
            c('%s.decoded = 0;' % dst)
        elif k == 'NULL':
            pass
        else:
            raise ParseError('cannot copy %s' % k)

    def free_occ(self, c, t, lv):
        if t.kind == 'REF':
            if self.has_free(t.ref):
                c('asn1Free_%s(pctxt, &%s);' % (t.ref, lv))
            return
        if not self.holds_pointers(t):
            return
        k = t.kind
        if k in ('INTEGER', 'TIME', 'STRING') and not (k == 'STRING' and t.strname in ('BMPString', 'UniversalString')):
            c('asn1data::freePtr(pctxt, %s);' % lv)
        elif k in ('OCTETS', 'BITS', 'ANY', 'OPEN') or k == 'STRING':
            c('asn1data::freePtr(pctxt, %s.data);' % lv)
        else:
            raise ParseError('cannot free %s' % k)

    def emit_copy(self, c, name):
        if not self.has_copy(name):
            return
        nt = self.types[name]
        t = nt.t
        sh = self.shape(name)
        c.open('void asn1Copy_%s(ASN1CTXT* pctxt, ASN1T_%s* pSrcValue, ASN1T_%s* pDstValue) {' % (name, name, name))
        c('if (pSrcValue == pDstValue) return;')
        if sh == 'alias':
            c('asn1Copy_%s(pctxt, pSrcValue, pDstValue);' % t.ref)
        elif sh == 'prim':
            self.copy_occ(c, t, '(*pSrcValue)', '(*pDstValue)')
        elif sh == 'choice':
            c('pDstValue->t = pSrcValue->t;')
            c.open('switch (pSrcValue->t) {')
            for i, f in enumerate(t.fields, 1):
                if self.is_null(f.type):
                    continue
                c.open('case %d: {' % i)
                inner = self.untag(f.type)
                if self.held_inline_in_union(f.type):
                    self.copy_occ(c, inner, 'pSrcValue->u.%s' % f.name, 'pDstValue->u.%s' % f.name)
                else:
                    ct = self.ctype(inner)
                    c('pDstValue->u.%s = (%s*)rtMemHeapAllocZ(&pctxt->typeHeap, (int)sizeof(%s));' % (f.name, ct, ct))
                    c('if (pDstValue->u.%s == 0) return;' % f.name)
                    self.copy_occ(c, inner, '(*pSrcValue->u.%s)' % f.name, '(*pDstValue->u.%s)' % f.name)
                c('break;')
                c.close()
            c('default: break;')
            c.close()
        elif sh == 'list':
            etype = self.ctype(self.untag(t.elem))
            c('rtDListInit(pDstValue);')
            c.open('for (Asn1RTDListNode* node = pSrcValue->head; node != 0; node = node->next) {')
            c('%s* element = (%s*)rtMemHeapAllocZ(&pctxt->typeHeap, (int)sizeof(%s));' % (etype, etype, etype))
            c('if (element == 0) return;')
            c('rtDListAppend(pctxt, pDstValue, element);')
            self.copy_elem(c, name, t, '(*(%s*)node->data)' % etype, '(*element)')
            c.close()
        elif sh == 'array':
            etype = self.ctype(self.untag(t.elem))
            c('pDstValue->n = pSrcValue->n;')
            c('pDstValue->elem = (%s*)rtMemHeapAllocZ(&pctxt->typeHeap, (int)(pSrcValue->n * sizeof(%s)));' % (etype, etype))
            c('if (pDstValue->elem == 0) { pDstValue->n = 0; return; }')
            c.open('for (ASN1UINT xx1 = 0; xx1 < pSrcValue->n; ++xx1) {')
            self.copy_occ(c, self.untag(t.elem), 'pSrcValue->elem[xx1]', 'pDstValue->elem[xx1]')
            c.close()
        else:
            opts = [f for f in t.fields if f.optional]
            if opts:
                c('pDstValue->m = pSrcValue->m;')
            tf = self.table_field(name)
            for f in t.fields:
                if self.is_null(f.type):
                    continue
                src, dst = 'pSrcValue->%s' % f.name, 'pDstValue->%s' % f.name
                if f.optional:
                    c.open('if (pSrcValue->m.%sPresent) {' % f.name)
                if tf is not None and tf[0] is f:
                    self.copy_table_field(c, name, f, tf[1])
                else:
                    self.copy_occ(c, self.untag(f.type), src, dst)
                if f.optional:
                    c.close()
            if t.ext:
                c('rtCopyOpenTypeExt(pctxt, &pSrcValue->extElem1, &pDstValue->extElem1);')
        c.close()
        c()

    def copy_elem(self, c, name, t, src, dst):
        self.copy_occ(c, self.untag(t.elem), src, dst)

    def copy_table_field(self, c, name, f, form):
        _, _, cls, setname, at, suffix = self.table_info(name)
        src, dst = 'pSrcValue->%s' % f.name, 'pDstValue->%s' % f.name
        c('%s* object = %s::instance(pctxt)->findObject(pSrcValue->%s);' % (cls, setname, at))
        if form == 'open':
            c('if (object != 0) object->copy%s(pctxt, %s, %s); else %s.decoded = 0;' % (suffix, src, dst, dst))
            c('rtCopyOpenType(pctxt, (const ASN1OpenType*)&%s, (ASN1OpenType*)&%s);' % (src, dst))
        elif form == 'octets':
            sib = self.sibling(f)
            if 'tablecopy' in self.types[name].t.ann:
                c('(void)object;')
            else:
                c('if (object != 0 && pSrcValue->%s.decoded != 0) object->copy%s(pctxt, pSrcValue->%s, pDstValue->%s); else pDstValue->%s.decoded = 0;'
                  % (sib, suffix, sib, sib, sib))
                c('rtCopyOpenType(pctxt, (const ASN1OpenType*)&pSrcValue->%s, (ASN1OpenType*)&pDstValue->%s);' % (sib, sib))
            c('rtCopyDynOctStr(pctxt, &%s, &%s);' % (src, dst))
        else:
            ref = f.type.ref
            c('rtDListInit(&%s);' % dst)
            c.open('for (Asn1RTDListNode* node = %s.head; node != 0; node = node->next) {' % src)
            c('Asn1TObject* from = (Asn1TObject*)node->data;')
            c('Asn1TObject* to = (Asn1TObject*)rtMemHeapAllocZ(&pctxt->typeHeap, (int)sizeof(Asn1TObject));')
            c('if (to == 0) return;')
            c('rtDListAppend(pctxt, &%s, to);' % dst)
            c('if (object != 0) object->copy%s(pctxt, *from, *to);' % suffix)
            c('rtCopyOpenType(pctxt, (const ASN1OpenType*)from, (ASN1OpenType*)to);')
            c.close()
            _ = ref

    def emit_free(self, c, name):
        if not self.has_free(name):
            return
        nt = self.types[name]
        t = nt.t
        sh = self.shape(name)
        c.open('void asn1Free_%s(ASN1CTXT* pctxt, ASN1T_%s* pvalue) {' % (name, name))
        c('if (pvalue == 0) return;')
        if sh == 'alias':
            c('asn1Free_%s(pctxt, pvalue);' % t.ref)
        elif sh == 'prim':
            self.free_occ(c, t, '(*pvalue)')
        elif sh == 'choice':
            c.open('switch (pvalue->t) {')
            for i, f in enumerate(t.fields, 1):
                if self.is_null(f.type):
                    continue
                inner = self.untag(f.type)
                c.open('case %d:' % i)
                if self.held_inline_in_union(f.type):
                    self.free_occ(c, inner, 'pvalue->u.%s' % f.name)
                else:
                    c.open('if (pvalue->u.%s != 0) {' % f.name)
                    self.free_occ(c, inner, '(*pvalue->u.%s)' % f.name)
                    c('asn1data::freePtr(pctxt, pvalue->u.%s);' % f.name)
                    c.close()
                c('break;')
                c.ind -= 1
            c('default: break;')
            c.close()
        elif sh == 'list':
            etype = self.ctype(self.untag(t.elem))
            probe = self.untag(t.elem)
            if self.holds_pointers(probe):
                c.open('for (Asn1RTDListNode* node = pvalue->head; node != 0; node = node->next) {')
                self.free_occ(c, probe, '(*(%s*)node->data)' % etype)
                c.close()
            c('rtDListFreeAll(pctxt, pvalue);')
        elif sh == 'array':
            probe = self.untag(t.elem)
            if self.holds_pointers(probe):
                c.open('for (ASN1UINT xx1 = 0; xx1 < pvalue->n; ++xx1) {')
                self.free_occ(c, probe, 'pvalue->elem[xx1]')
                c.close()
            c('asn1data::freePtr(pctxt, pvalue->elem);')
        else:
            tf = self.table_field(name)
            for f in t.fields:
                if self.is_null(f.type):
                    continue
                inner = self.untag(f.type)
                if not self.holds_pointers(inner):
                    continue
                if f.optional:
                    c.open('if (pvalue->m.%sPresent) {' % f.name)
                if tf is not None and tf[0] is f:
                    self.free_table_field(c, name, f, tf[1])
                elif f.default is not None and self.int_repr(f.type) == 'bigint':
                    c('if (pvalue->%s != k%sDefault) asn1data::freePtr(pctxt, pvalue->%s);'
                      % (f.name, self.default_name(f), f.name))
                else:
                    self.free_occ(c, inner, 'pvalue->%s' % f.name)
                if f.optional:
                    c.close()
            if t.ext:
                c('rtMemFreeOpenSeqExt(pctxt, &pvalue->extElem1);')
        c.close()
        c()

    def free_table_field(self, c, name, f, form):
        _, _, cls, setname, at, suffix = self.table_info(name)
        lv = 'pvalue->%s' % f.name
        if form == 'open':
            c('%s* object = %s::instance(pctxt)->findObject(pvalue->%s);' % (cls, setname, at))
            c('if (object != 0) object->free%s(pctxt, %s); else %s.decoded = 0;' % (suffix, lv, lv))
            c('asn1data::freePtr(pctxt, %s.data);' % lv)
        elif form == 'octets':
            c('asn1data::freePtr(pctxt, %s.data);' % lv)
        else:
            c('%s* object = %s::instance(pctxt)->findObject(pvalue->%s);' % (cls, setname, at))
            c.open('for (Asn1RTDListNode* node = %s.head; node != 0; node = node->next) {' % lv)
            c('Asn1TObject* value = (Asn1TObject*)node->data;')
            c('if (object != 0) object->free%s(pctxt, *value); else value->decoded = 0;' % suffix)
            c('asn1data::freePtr(pctxt, value->data);')
            c.close()
            c('rtDListFreeAll(pctxt, &%s);' % lv)

    # ==== data-class and control-class members ==================================================================
    def emit_members(self, c, name):
        nt = self.types[name]
        t = nt.t
        sh = self.shape(name)
        if sh in ('record', 'choice', 'array'):
            inits = ['mpContext()']
            if sh == 'array':
                inits += ['n(0)', 'elem(0)']
            elif sh == 'choice':
                inits += ['t(0)']
            else:
                for f in t.fields:
                    if not self.is_null(f.type):
                        inits.append('%s()' % f.name)
                        if f.type.table is not None and f.type.kind == 'OCTETS':
                            inits.append('%s()' % self.sibling(f))
            c.open('ASN1T_%s::ASN1T_%s() : %s {' % (name, name, ', '.join(inits)))
            if sh == 'choice':
                c('memset(&u, 0, sizeof(u));')
            elif sh == 'record':
                for f in t.fields:
                    if f.optional:
                        c('m.%sPresent = 0;' % f.name)
                if t.ext:
                    c('rtDListInit(&extElem1);')
            c.close()
            c()
        if sh in ('record', 'choice', 'array', 'list'):
            copyfn = 'asn1Copy_%s' % name
            helper = 'listFromControl' if sh == 'list' else 'recordFromControl'
            c.open('ASN1T_%s::ASN1T_%s(ASN1C_%s& control)%s {' % (name, name, name, '' if sh == 'list' else ' : ASN1T_%s()' % name))
            c('asn1data::%s(control, *this, %s);' % (helper, copyfn))
            c.close()
            c()
            if self.has_free(name):
                c.open('ASN1T_%s::~ASN1T_%s() {' % (name, name))
                c('if (mpContext) asn1Free_%s(mpContext->GetPtr(), this);' % name)
                c.close()
                c()
        # Control class.
        base = self.control_base(name)
        derived = sh == 'alias'
        if derived:
            c('ASN1C_%s::ASN1C_%s(ASN1T_%s& data) : %s(data) {}' % (name, name, name, base))
            c('ASN1C_%s::ASN1C_%s(ASN1MessageBufferIF& msgBuf, ASN1T_%s& data) : %s(msgBuf, data) {}'
              % (name, name, name, base))
            c('ASN1C_%s::ASN1C_%s(ASN1C_%s& original) : %s(original) {}' % (name, name, name, base))
        else:
            own, buf = self.base_inits(name, base)
            c('ASN1C_%s::ASN1C_%s(ASN1T_%s& data) : %s, mpData(&data) {}' % (name, name, name, own))
            c('ASN1C_%s::ASN1C_%s(ASN1MessageBufferIF& msgBuf, ASN1T_%s& data) : %s, mpData(&data) {}'
              % (name, name, name, buf))
            c.open('ASN1C_%s::ASN1C_%s(ASN1C_%s& original) : %s(original), mpData(0) {' % (name, name, name, base))
            copyfn = 'asn1Copy_%s' % name if self.has_copy(name) else '0'
            c('mpData = asn1data::controlCopyData<ASN1T_%s>(*this, original.mpData, %s);' % (name, copyfn))
            if sh == 'list':
                c('if (mpData != 0) pList = mpData;')
            c.close()
        c('ASN1C_%s::~ASN1C_%s() {}' % (name, name))
        if not derived:
            copyfn = 'asn1Copy_%s' % name if self.has_copy(name) else '0'
            c.open('ASN1T_%s* ASN1C_%s::getCopy(ASN1T_%s* pDstData) {' % (name, name, name))
            c('return asn1data::controlGetCopy<ASN1T_%s>(*this, mpData, pDstData, %s);' % (name, copyfn))
            c.close()
            c.open('ASN1T_%s* ASN1C_%s::newCopy() {' % (name, name))
            c('return asn1data::controlNewCopy<ASN1T_%s>(*this, mpData, %s);' % (name, copyfn))
            c.close()
            if self.has_assign(name):
                c.open('ASN1C_%s& ASN1C_%s::operator=(ASN1C_%s& other) {' % (name, name, name))
                if sh == 'list':
                    c('if (&other == this) return *this;')
                    c('ASN1CSeqOfList::clear();')
                    c('asn1Copy_%s(getCtxtPtr(), other.mpData, mpData);' % name)
                else:
                    c('if (&other != this) other.getCopy(mpData);')
                c('return *this;')
                c.close()
        c.open('int ASN1C_%s::EncodeTo(ASN1MessageBufferIF& msgBuf) {' % name)
        c('setMsgBuf(msgBuf);')
        c('msgBuf.init();')
        c('return asn1E_%s(msgBuf.getCtxtPtr(), &getData(), ASN1EXPL);' % name)
        c.close()
        c.open('int ASN1C_%s::DecodeFrom(ASN1MessageBufferIF& msgBuf) {' % name)
        c('setMsgBuf(msgBuf);')
        c('msgBuf.init();')
        c('return asn1D_%s(msgBuf.getCtxtPtr(), &getData(), ASN1EXPL, 0);' % name)
        c.close()
        c()

    def base_inits(self, name, base):
        t = self.types[name].t
        if base == 'ASN1CSeqOfList':
            return 'ASN1CSeqOfList(data)', 'ASN1CSeqOfList(msgBuf, data)'
        if base == 'ASN1CBitStr':
            room = self.named_bits_room(t)
            if room is not None:
                return ('ASN1CBitStr(data.data, data.numbits, %d)' % room,
                        'ASN1CBitStr(msgBuf, data.data, data.numbits, %d)' % room)
            return 'ASN1CBitStr(data)', 'ASN1CBitStr(msgBuf, data)'
        if base == 'ASN1CGeneralizedTime':
            return 'ASN1CGeneralizedTime(data)', 'ASN1CGeneralizedTime(msgBuf, data)'
        if base == 'ASN1CType':
            return 'ASN1CType()', 'ASN1CType(msgBuf)'
        raise ParseError('%s: no constructors known for base %s' % (name, base))

    # ==== defaults ===============================================================================
    def emit_default_literals(self, c, name):
        t = self.types[name].t
        if t.kind not in ('SEQUENCE', 'SET'):
            return
        for f in t.fields:
            if f.default is not None and self.cat.deref(f.type).kind == 'INTEGER' and \
                    self.int_repr(f.type) == 'bigint':
                c('static const char k%sDefault[] = "%s";' % (self.default_name(f), f.default))

    # ==== description tables =======================================================================
    def info_ref(self, t):
        """Address of the TypeInfo of one occurrence."""
        if t.kind == 'REF':
            return '&kType_%s' % t.ref
        k = t.kind
        if k == 'BOOLEAN':
            return '&asn1data::kBuiltinBoolean'
        if k == 'INTEGER':
            return {'i32': '&asn1data::kBuiltinInteger', 'unsigned': '&asn1data::kBuiltinUnsigned',
                    'u16': '&asn1data::kBuiltinUInt16', 'bigint': '&asn1data::kBuiltinBigInt'}[self.int_repr(t)]
        if k == 'ENUMERATED':
            return '&asn1data::kBuiltinEnumerated'
        if k == 'NULL':
            return '&asn1data::kBuiltinNull'
        if k == 'OID':
            return '&asn1data::kBuiltinObjectId'
        if k == 'OCTETS':
            return '&asn1data::kBuiltinOctetsInline' if self.inline_octets(t) is not None else '&asn1data::kBuiltinOctets'
        if k == 'BITS':
            return '&asn1data::kBuiltinBitsInline' if self.named_bits_room(t) is not None else '&asn1data::kBuiltinBits'
        if k == 'STRING' and t.strname == 'BMPString':
            return '&asn1data::kBuiltinBmp'
        if k == 'STRING' and t.strname == 'UniversalString':
            return '&asn1data::kBuiltinUniversal'
        if k in ('STRING', 'TIME'):
            return '&asn1data::kBuiltinText[%d]' % self.str_num(t)
        if k == 'ANY':
            return '&asn1data::kBuiltinOpenType'
        if k == 'OPEN':
            return '&asn1data::kBuiltinTableOpen'
        raise ParseError('no description for %s' % k)

    def prim_kind_name(self, t):
        k = t.kind
        if k == 'INTEGER':
            return {'i32': 'Integer', 'unsigned': 'Unsigned', 'u16': 'UInt16', 'bigint': 'BigInt'}[self.int_repr(t)]
        if k == 'OCTETS':
            return 'OctetsInline' if self.inline_octets(t) is not None else 'Octets'
        if k == 'BITS':
            return 'BitsInline' if self.named_bits_room(t) is not None else 'Bits'
        if k == 'STRING':
            return {'BMPString': 'Bmp', 'UniversalString': 'Universal'}.get(t.strname, 'Text')
        return {'BOOLEAN': 'Boolean', 'ENUMERATED': 'Enumerated', 'NULL': 'Null', 'OID': 'ObjectId',
                'TIME': 'Text', 'ANY': 'OpenType', 'OPEN': 'TableOpen'}[k]

    def emit_reflection(self, c, name):
        t = self.types[name].t
        sh = self.shape(name)
        X = 'ASN1T_%s' % name
        c('static int encodeAny_%s(ASN1CTXT* pctxt, void* p, int tagging) { return asn1E_%s(pctxt, (%s*)p, tagging); }'
          % (name, name, X))
        c('static int decodeAny_%s(ASN1CTXT* pctxt, void* p, int tagging, int length) { return asn1D_%s(pctxt, (%s*)p, tagging, length); }'
          % (name, name, X))
        fields, elem, moff, uoff, tagnum = '0', '0', '~0u', '~0u', 0
        nfields = 0
        if sh == 'alias':
            kind = 'Alias'
            elem = '&kType_%s' % t.ref
        elif sh == 'prim':
            kind = self.prim_kind_name(t)
            if t.kind in ('STRING', 'TIME') and kind == 'Text':
                tagnum = self.str_num(t)
        elif sh in ('list', 'array'):
            kind = 'List' if sh == 'list' else 'Array'
            elem = self.info_ref(self.untag(t.elem))
            if sh == 'array':
                moff, uoff = 'offsetof(%s, n)' % X, 'offsetof(%s, elem)' % X
        else:
            kind = {'SEQUENCE': 'Sequence', 'SET': 'Set', 'CHOICE': 'Choice'}[t.kind]
            tf = self.table_field(name)
            rows = []
            bit = 0
            for f in t.fields:
                inner = self.untag(f.type)
                table = '0'
                if tf is not None and tf[0] is f:
                    _, form, _, setname, at, _ = self.table_info(name)
                    sib = 'offsetof(%s, %s)' % (X, self.sibling(f)) if form == 'octets' else '~0u'
                    c('static const asn1data::TableInfo kTable_%s = { "%s", offsetof(%s, %s), %s };'
                      % (name, setname, X, at, sib))
                    table = '&kTable_%s' % name
                if self.is_null(f.type):
                    off = '0'
                elif sh == 'choice':
                    off = '0'
                else:
                    off = 'offsetof(%s, %s)' % (X, f.name)
                present = -1
                if f.optional:
                    present = bit
                    bit += 1
                byptr = 'true' if sh == 'choice' and not self.is_null(f.type) and not self.held_inline_in_union(f.type) else 'false'
                rows.append('{ "%s", %s, %s, %d, %s, %s }' % (f.name, self.info_ref(inner), off, present, byptr, table))
            if rows:
                c('static const asn1data::FieldInfo kFields_%s[] = {' % name)
                for r in rows:
                    c('    %s,' % r)
                c('};')
                fields = 'kFields_%s' % name
                nfields = len(rows)
            if sh == 'choice':
                moff, uoff = 'offsetof(%s, t)' % X, 'offsetof(%s, u)' % X
            elif any(f.optional for f in t.fields):
                moff = 'offsetof(%s, m)' % X
        size = 'sizeof(%s)' % X if not (sh == 'prim' and t.kind == 'NULL') else 'sizeof(void*)'
        c('const asn1data::TypeInfo kType_%s = { "%s", asn1data::Kind::%s, %s, %d, %s, %d, %s, %s, %s, encodeAny_%s, decodeAny_%s };'
          % (name, name, kind, size, tagnum, fields, nfields, elem, moff, uoff, name, name))
        c()
