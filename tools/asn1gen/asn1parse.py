"""Reader of the catalogue's ASN.1 modules: a subset of the X.680/X.681 notation.

Accepted:
  Name DEFINITIONS [IMPLICIT | EXPLICIT] TAGS ::= BEGIN ... END
  Type ::= <type>                         type assignment
  name OBJECT IDENTIFIER ::= { ... }      identifier constant ({ name 1 2 }, { iso(1) 2 })
  name INTEGER ::= 32768                  integer constant (usable in constraints)
  CLASS-NAME ::= CLASS { ... }            information object class (body skipped)
  name CLASS-NAME ::= { [Type] IDENTIFIED BY <oid> }      information object
  Set CLASS-NAME ::= { obj | obj | ... }                  information object set
Types: BOOLEAN, INTEGER [{named}] [(range)], ENUMERATED {..}, NULL, OBJECT IDENTIFIER,
OCTET STRING, BIT STRING [{named bits}], the character string types, UTCTime,
GeneralizedTime, ANY [DEFINED BY f], CLASS.&Field({Set}{@field}), OCTET STRING (CONTAINING
CLASS.&Field({Set}{@field})), SEQUENCE/SET {fields}, CHOICE {alternatives}, SEQUENCE/SET
[SIZE (..)] OF T, tags [n] / [APPLICATION n] with IMPLICIT or EXPLICIT, SIZE and value
constraints, the extension marker "...". Identifiers may hold '-' and '_'; '-' becomes '_'.

Annotations are words beginning with '@' inside comments; they attach to the field or
type assignment most recently begun (write them on its line). See asn1gen.py for the list.
"""

import re

STRING_TYPES = {
    'UTF8String': 12, 'NumericString': 18, 'PrintableString': 19, 'TeletexString': 20,
    'T61String': 20, 'VideotexString': 21, 'IA5String': 22, 'GraphicString': 25,
    'VisibleString': 26, 'ISO646String': 26, 'GeneralString': 27, 'UniversalString': 28,
    'BMPString': 30,
}
TIME_TYPES = {'UTCTime': 23, 'GeneralizedTime': 24}


class ParseError(Exception):
    pass


class Tok:
    __slots__ = ('kind', 'text', 'line', 'file')

    def __init__(self, kind, text, line, file):
        self.kind, self.text, self.line, self.file = kind, text, line, file

    def __repr__(self):
        return '%s:%d %r' % (self.file, self.line, self.text)


_TOKEN = re.compile(r'''
    (?P<ws>[ \t\r]+) |
    (?P<nl>\n) |
    (?P<comment>--) |
    (?P<assign>::=) |
    (?P<ellipsis>\.\.\.) |
    (?P<range>\.\.) |
    (?P<num>-?[0-9]+) |
    (?P<str>"[^"]*") |
    (?P<ident>&?[A-Za-z][A-Za-z0-9_-]*) |
    (?P<sym>[{}()\[\],|@.;<!^])
''', re.X)

_ANNOT = re.compile(r'@([A-Za-z_][A-Za-z0-9_]*)(\(([^)]*)\))?')


def tokenize(text, fname):
    """Tokens, and the annotations found in comments, each as (line, name, args)."""
    toks, annots = [], []
    pos, line = 0, 1
    n = len(text)
    while pos < n:
        m = _TOKEN.match(text, pos)
        if not m:
            raise ParseError('%s:%d: unexpected character %r' % (fname, line, text[pos]))
        kind = m.lastgroup
        if kind == 'nl':
            line += 1
            pos = m.end()
            continue
        if kind == 'ws':
            pos = m.end()
            continue
        if kind == 'comment':
            # A comment runs to the end of the line or to the next "--".
            end_line = text.find('\n', m.end())
            if end_line < 0:
                end_line = n
            end_dash = text.find('--', m.end(), end_line)
            end = end_dash if end_dash >= 0 else end_line
            body = text[m.end():end]
            for a in _ANNOT.finditer(body):
                args = a.group(3)
                arglist = [x.strip() for x in args.split(',')] if args is not None else []
                annots.append((line, a.group(1), arglist, len(toks)))
            pos = end + 2 if end_dash >= 0 else end
            continue
        t = m.group(kind)
        if kind == 'ident' and t.endswith('-'):
            raise ParseError('%s:%d: identifier ends with "-": %s' % (fname, line, t))
        toks.append(Tok(kind, t, line, fname))
        pos = m.end()
    toks.append(Tok('eof', '', line, fname))
    return toks, annots


def cname(name):
    return name.replace('-', '_')


class Tag:
    __slots__ = ('cls', 'num', 'mode')

    def __init__(self, cls, num, mode):
        self.cls, self.num, self.mode = cls, num, mode  # mode: 'IMPLICIT', 'EXPLICIT' or None

    def word(self):
        base = {'UNIVERSAL': 0, 'APPLICATION': 0x40000000, 'CONTEXT': 0x80000000,
                'PRIVATE': 0xC0000000}[self.cls]
        return base | self.num


class Type:
    """One type as written; `kind` is one of BOOLEAN INTEGER ENUMERATED NULL OID OCTETS BITS
    STRING TIME ANY OPEN SEQUENCE SET CHOICE SEQOF SETOF REF."""

    def __init__(self, kind):
        self.kind = kind
        self.tag = None        # Tag on this occurrence
        self.size = None       # (lo, hi) of a SIZE constraint; hi None for MAX
        self.range = None      # (lo, hi) of a value constraint
        self.named = []        # named numbers, bits or enumerators: (name, value)
        self.fields = []       # SEQUENCE, SET, CHOICE
        self.ext = False       # extension marker present
        self.elem = None       # element type of SEQOF/SETOF
        self.ref = None        # REF: the type name (C form)
        self.strname = None    # STRING/TIME: the ASN.1 type name
        self.table = None      # OPEN or OCTETS CONTAINING: (class, field, set, atfield)
        self.ann = {}          # annotations
        self.line = 0
        self.file = ''

    def __repr__(self):
        return '<Type %s %s>' % (self.kind, self.ref or self.strname or '')


class Field:
    def __init__(self, name, typ):
        self.name = name      # C form
        self.type = typ
        self.optional = False
        self.default = None   # the DEFAULT value as written (int, bool, str, list)
        self.ann = {}


class Module:
    def __init__(self, name, default_tagging, fname):
        self.name = name
        self.tagging = default_tagging   # 'IMPLICIT' or 'EXPLICIT'
        self.file = fname
        self.types = []        # (name, Type) in order of the file
        self.values = []       # (name, kind, value): kind 'OID' (list of parts) or 'INTEGER'
        self.classes = []      # (name, ann)
        self.objects = []      # (name, class, Type or None, oid parts, ann)
        self.sets = []         # (name, class, [object names], ann)


class Parser:
    def __init__(self, text, fname):
        self.toks, annots = tokenize(text, fname)
        self.fname = fname
        self.i = 0
        # Annotations keyed by the index of the first token after them.
        self.annots = annots
        self.targets = []   # (token index where an item began, ann dict)

    # -- token helpers --------------------------------------------------------------
    def peek(self, k=0):
        return self.toks[min(self.i + k, len(self.toks) - 1)]

    def next(self):
        t = self.toks[self.i]
        self.i += 1
        return t

    def err(self, msg, tok=None):
        tok = tok or self.peek()
        raise ParseError('%s:%d: %s (at %r)' % (self.fname, tok.line, msg, tok.text))

    def expect(self, text):
        t = self.next()
        if t.text != text:
            self.err('expected %r' % text, t)
        return t

    def accept(self, text):
        if self.peek().text == text:
            return self.next()
        return None

    def ident(self):
        t = self.next()
        if t.kind != 'ident':
            self.err('expected a name', t)
        return t.text

    def begin_item(self, ann):
        self.targets.append((self.i, ann))

    def assign_annotations(self):
        # Each annotation goes to the last item begun at or before its position.
        starts = sorted(self.targets, key=lambda x: x[0])
        for line, name, args, tokidx in self.annots:
            best = None
            for start, ann in starts:
                if start < tokidx:
                    best = ann
                else:
                    break
            if best is None:
                raise ParseError('%s:%d: annotation @%s before any item' % (self.fname, line, name))
            best[name] = args

    # -- modules ----------------------------------------------------------------------
    def parse_module(self):
        name = self.ident()
        tagging = 'EXPLICIT'
        self.expect('DEFINITIONS')
        if self.peek().text in ('IMPLICIT', 'EXPLICIT', 'AUTOMATIC'):
            tagging = self.next().text
            if tagging == 'AUTOMATIC':
                self.err('AUTOMATIC tagging is not supported')
            self.expect('TAGS')
        self.expect('::=')
        self.expect('BEGIN')
        mod = Module(name, tagging, self.fname)
        while self.peek().text != 'END':
            self.parse_assignment(mod)
        self.expect('END')
        self.assign_annotations()
        return mod

    def parse_assignment(self, mod):
        start = self.i
        first = self.next()
        if first.kind != 'ident':
            self.err('expected an assignment', first)
        name = first.text
        nxt = self.peek()
        if nxt.text == '::=':
            self.next()
            if self.peek().text == 'CLASS':
                self.next()
                ann = {}
                self.targets.append((start, ann))
                self.skip_braces()
                mod.classes.append((cname(name), ann))
                return
            ann = {}
            self.targets.append((start, ann))
            t = self.parse_type()
            t.ann = ann
            t.line, t.file = first.line, self.fname
            mod.types.append((cname(name), t))
            return
        if nxt.text == 'OBJECT' and self.peek(1).text == 'IDENTIFIER':
            self.next()
            self.next()
            self.expect('::=')
            ann = {}
            self.targets.append((start, ann))
            mod.values.append((cname(name), 'OID', self.parse_oid_value(), ann, first.line))
            return
        if nxt.text == 'INTEGER':
            self.next()
            self.expect('::=')
            v = self.next()
            if v.kind != 'num':
                self.err('expected a number', v)
            mod.values.append((cname(name), 'INTEGER', int(v.text), {}, first.line))
            return
        if nxt.kind == 'ident' and nxt.text.isupper() and self.peek(1).text == '::=':
            cls = cname(self.next().text)
            self.expect('::=')
            ann = {}
            self.targets.append((start, ann))
            self.expect('{')
            if name[0].isupper():
                members = []
                if self.peek().text != '}':
                    members.append(cname(self.ident()))
                    while self.accept('|'):
                        members.append(cname(self.ident()))
                self.expect('}')
                mod.sets.append((cname(name), cls, members, ann))
            else:
                typ = None
                if self.peek().text != 'IDENTIFIED':
                    typ = self.parse_type()
                    typ.line, typ.file = first.line, self.fname
                self.expect('IDENTIFIED')
                self.expect('BY')
                if self.peek().text == '{':
                    oid = self.parse_oid_value()
                else:
                    oid = [cname(self.ident())]
                self.expect('}')
                mod.objects.append((cname(name), cls, typ, oid, ann))
            return
        self.err('cannot read this assignment', first)

    def skip_braces(self):
        self.expect('{')
        depth = 1
        while depth:
            t = self.next()
            if t.kind == 'eof':
                self.err('unterminated braces')
            if t.text == '{':
                depth += 1
            elif t.text == '}':
                depth -= 1

    def parse_oid_value(self):
        self.expect('{')
        parts = []
        while self.peek().text != '}':
            t = self.next()
            if t.kind == 'num':
                parts.append(int(t.text))
            elif t.kind == 'ident':
                if self.accept('('):
                    v = self.next()
                    self.expect(')')
                    parts.append(int(v.text))
                else:
                    parts.append(cname(t.text))
            else:
                self.err('bad object identifier value', t)
        self.expect('}')
        return parts

    # -- types --------------------------------------------------------------------------
    def parse_type(self):
        tag = None
        if self.peek().text == '[':
            self.next()
            cls = 'CONTEXT'
            if self.peek().text in ('APPLICATION', 'UNIVERSAL', 'PRIVATE'):
                cls = self.next().text
            num = self.next()
            if num.kind != 'num':
                self.err('expected a tag number', num)
            self.expect(']')
            mode = None
            if self.peek().text in ('IMPLICIT', 'EXPLICIT'):
                mode = self.next().text
            tag = Tag(cls, int(num.text), mode)
        if self.peek().text == '[':
            self.err('a tag on a tag: name the inner type')
        t = self.parse_untagged()
        t.tag = tag
        self.parse_constraints(t)
        return t

    def parse_untagged(self):
        tok = self.next()
        w = tok.text
        if w == 'BOOLEAN':
            return Type('BOOLEAN')
        if w == 'NULL':
            return Type('NULL')
        if w == 'INTEGER':
            t = Type('INTEGER')
            if self.peek().text == '{':
                t.named = self.parse_named_list()
            return t
        if w == 'ENUMERATED':
            t = Type('ENUMERATED')
            t.named = self.parse_named_list(enumerated=True)
            return t
        if w == 'OBJECT':
            self.expect('IDENTIFIER')
            return Type('OID')
        if w == 'OCTET':
            self.expect('STRING')
            return Type('OCTETS')
        if w == 'BIT':
            self.expect('STRING')
            t = Type('BITS')
            if self.peek().text == '{':
                t.named = self.parse_named_list()
            return t
        if w in STRING_TYPES:
            t = Type('STRING')
            t.strname = w
            return t
        if w in TIME_TYPES:
            t = Type('TIME')
            t.strname = w
            return t
        if w == 'ANY':
            t = Type('ANY')
            if self.accept('DEFINED'):
                self.expect('BY')
                self.ident()
            return t
        if w in ('SEQUENCE', 'SET'):
            if self.peek().text == '{':
                t = Type(w)
                self.parse_fields(t, choice=False)
                return t
            t = Type('SEQOF' if w == 'SEQUENCE' else 'SETOF')
            if self.peek().text == 'SIZE':
                t.size = self.parse_size_body()
            elif self.peek().text == '(':
                self.next()
                self.expect('SIZE')
                t.size = self.parse_size_body()
                self.expect(')')
            self.expect('OF')
            if self.peek().kind == 'ident' and self.peek(1).kind == 'ident' and \
                    self.peek(1).text[0].isupper() and self.peek().text[0].islower():
                self.next()  # a named element: "SEQUENCE OF name Type"
            t.elem = self.parse_type()
            return t
        if w == 'CHOICE':
            t = Type('CHOICE')
            self.parse_fields(t, choice=True)
            return t
        if tok.kind == 'ident':
            if self.peek().text == '.' and self.peek(1).text.startswith('&'):
                # CLASS.&Field({Set}{@field})
                self.next()
                fld = self.next().text[1:]
                self.expect('(')
                self.expect('{')
                setname = cname(self.ident())
                self.expect('}')
                self.expect('{')
                self.expect('@')
                at = cname(self.ident())
                self.expect('}')
                self.expect(')')
                t = Type('OPEN')
                t.table = (cname(w), fld, setname, at)
                return t
            t = Type('REF')
            t.ref = cname(w)
            return t
        self.err('expected a type', tok)

    def parse_named_list(self, enumerated=False):
        self.expect('{')
        out = []
        nextval = 0
        while True:
            if self.accept('...'):
                pass
            else:
                n = cname(self.ident())
                if self.accept('('):
                    v = self.next()
                    if v.kind != 'num':
                        self.err('expected a number', v)
                    val = int(v.text)
                    self.expect(')')
                elif enumerated:
                    val = nextval
                else:
                    self.err('named number without value')
                out.append((n, val))
                nextval = val + 1
            if not self.accept(','):
                break
        self.expect('}')
        return out

    def parse_fields(self, t, choice):
        self.expect('{')
        if self.accept('}'):
            return
        while True:
            if self.peek().text == '...':
                self.next()
                t.ext = True
                t.ext_at = len(t.fields)
            else:
                start = self.i
                ann = {}
                self.targets.append((start, ann))
                name = cname(self.ident())
                ft = self.parse_type()
                ft.ann = ann   # annotations on a field speak of its type as well
                f = Field(name, ft)
                f.ann = ann
                if not choice:
                    if self.accept('OPTIONAL'):
                        f.optional = True
                    elif self.accept('DEFAULT'):
                        f.default = self.parse_value()
                t.fields.append(f)
            if not self.accept(','):
                break
        self.expect('}')

    def parse_value(self):
        t = self.next()
        if t.kind == 'num':
            return int(t.text)
        if t.text in ('TRUE', 'FALSE'):
            return t.text == 'TRUE'
        if t.kind == 'str':
            return t.text[1:-1]
        if t.text == '{':
            depth = 1
            words = []
            while depth:
                x = self.next()
                if x.text == '{':
                    depth += 1
                elif x.text == '}':
                    depth -= 1
                if depth:
                    words.append(x.text)
            return words
        if t.kind == 'ident':
            return ('name', cname(t.text))
        self.err('bad value', t)

    def parse_bound(self):
        t = self.next()
        if t.kind == 'num':
            return int(t.text)
        if t.text == 'MAX':
            return None
        if t.text == 'MIN':
            return None
        if t.kind == 'ident':
            return ('name', cname(t.text))
        self.err('bad bound', t)

    def parse_size_body(self):
        """(lo, hi), or (lo, hi, [sizes]) for a union of exact sizes such as (32 | 64)."""
        self.expect('SIZE')
        self.expect('(')
        lo = self.parse_bound()
        hi = lo
        if self.accept('..'):
            hi = self.parse_bound()
        alts = [lo]
        while self.accept('|'):
            alts.append(self.parse_bound())
        self.expect(')')
        if len(alts) > 1:
            return (min(alts), max(alts), alts)
        return (lo, hi)

    def parse_constraints(self, t):
        while self.peek().text == '(':
            self.next()
            if self.peek().text == 'SIZE':
                t.size = self.parse_size_body()
            elif self.peek().text == 'CONTAINING':
                self.next()
                inner = self.parse_untagged()
                if inner.kind != 'OPEN' or t.kind != 'OCTETS':
                    self.err('CONTAINING takes CLASS.&Field({Set}{@field}) on an OCTET STRING')
                t.table = inner.table
            else:
                lo = self.parse_bound()
                hi = lo
                if self.accept('..'):
                    hi = self.parse_bound()
                t.range = (lo, hi)
            self.expect(')')


def parse_file(path):
    with open(path, encoding='utf-8') as f:
        text = f.read()
    p = Parser(text, path)
    mods = []
    while p.peek().kind != 'eof':
        mods.append(p.parse_module())
    return mods
