"""Finds the sites of a C++ source at which the library could be wrong, and writes a source in which
each site asks at run time whether to be wrong.

Reads tokens only. It relies on the layout of clang-format, in which a binary operator is between
blanks and the brackets of a template are not. A site that is not an expression does not compile and
is then dropped.
"""

import re
from dataclasses import dataclass, field

TOKEN = re.compile(r'''
    (?P<skip>//[^\n]*|/\*.*?\*/)
  | (?P<directive>^[ ]*\#(?:[^\n\\]|\\.)*)
  | (?P<string>"(?:[^"\\\n]|\\.)*")
  | (?P<char>'(?:[^'\\\n]|\\.)*')
  | (?P<number>(?:0x[0-9A-Fa-f]+|\d+)[uUlL]*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<op>->\*|<<=|>>=|\.\*|::|->|\+\+|--|&&|\|\||[-<>=!+*/%&|]=|<<|>>|\S)
''', re.S | re.M | re.X)

PRECEDENCE = {'=': 1, '+=': 1, '-=': 1, '*=': 1, '<<=': 1, '>>=': 1, '||': 3, '&&': 4, '|': 5,
              '&': 7, '==': 8, '!=': 8, '<': 9, '<=': 9, '>': 9, '>=': 9, '<<': 10, '>>': 10,
              '+': 11, '-': 11, '*': 12, '/': 12, '%': 12}
# Operator: kind, function of mutant.h, what it turns into.
BINARY = {'<': ('relation', 'Less', ['<=', '>']), '<=': ('relation', 'AtMost', ['<', '>=']),
          '>': ('relation', 'Greater', ['>=', '<']), '>=': ('relation', 'AtLeast', ['>', '<=']),
          '==': ('relation', 'Equal', ['!=']), '!=': ('relation', 'NotEqual', ['==']),
          '+': ('arithmetic', 'Add', ['-']), '-': ('arithmetic', 'Subtract', ['+']),
          '*': ('arithmetic', 'Multiply', ['+']), '/': ('arithmetic', 'Divide', ['*']),
          '%': ('arithmetic', 'Modulo', ['/']), '<<': ('arithmetic', 'ShiftLeft', ['>>']),
          '>>': ('arithmetic', 'ShiftRight', ['<<']), '&': ('arithmetic', 'BitAnd', ['|']),
          '|': ('arithmetic', 'BitOr', ['&']), '+=': ('arithmetic', 'AddTo', ['-=']),
          '-=': ('arithmetic', 'SubtractFrom', ['+='])}
LOGIC = {'&&': '||', '||': '&&'}
PAIRS = [('mSize', 'mCapacity'), ('rows', 'cols'), ('mRows', 'mCols'),
         ('mGlobalRows', 'mGlobalCols'), ('globalRows', 'globalCols'), ('mCounts', 'mDispls'),
         ('sendcount', 'recvcount'), ('bytes', 'backed'), ('older', 'newer'), ('src', 'dst'),
         ('mOldest', 'mNewest'), ('Runs', 'RunLength'), ('mSourceRank', 'mRoot'),
         ('mRowIdx', 'mColIdx'), ('length', 'stride'), ('mSend', 'mRecv')]
OTHER_NAME = {a: b for pair in PAIRS for a, b in (pair, pair[::-1])}

CONSTANT = re.compile(r'k[A-Z]\w*|[A-Z][A-Z0-9]*(_[A-Z0-9]+)*|true|false')
SYSTEM_CONSTANT = re.compile(r'(PROT|MAP|MADV)_\w+')
SCOPES = {'namespace', 'class', 'struct', 'enum', 'union'}
NO_STATEMENT = {'return', 'if', 'for', 'while', 'do', 'else', 'switch', 'case', 'default', 'auto',
                'break', 'continue', 'try', 'catch', 'throw', 'constexpr', 'static_assert',
                'using', 'template', 'asm', 'alignas'}
FIXED = {'constexpr', 'static_assert', 'using', 'template', 'asm', 'alignas'}  # up to the ;
FIXED_CALLS = {'sizeof', 'alignof', 'noexcept', 'decltype'}
OPEN, CLOSE = '([{', ')]}'


@dataclass
class Site:
    """An expression or statement with one or more mutants, numbered from `first` on."""
    start: int  # offsets into the source
    end: int
    kind: str
    changes: list  # a text for each mutant
    before: str  # written around it; % is replaced by the number of the first mutant
    after: str
    inside: list = field(default_factory=list)  # (start, end, replacement)
    first: int = 0


class Source:
    def __init__(self, text):
        self.text = text
        self.read_tokens()
        self.match_brackets()
        self.sites = []
        for begin, end, head in self.functions():
            if 'constexpr' not in head:
                self.begin, self.end, self.head = begin, end, head
                self.find_fixed()
                for i in range(begin + 1, end):
                    if i not in self.fixed:
                        self.look_at(i)

    def read_tokens(self):
        self.tokens, self.kinds, self.spans = [], [], []
        skipped_branch = False
        for match in TOKEN.finditer(self.text):
            if match.lastgroup == 'directive':  # the first of two branches is compiled
                if re.match(r' *#\s*el', match.group()):
                    skipped_branch = True
                elif re.match(r' *#\s*endif', match.group()):
                    skipped_branch = False
            elif match.lastgroup != 'skip' and not skipped_branch:
                self.tokens.append(match.group())
                self.kinds.append(match.lastgroup)
                self.spans.append(match.span())

    def match_brackets(self):
        self.match, stack, self.heads = {}, [], set()
        for i, token in enumerate(self.tokens):
            if self.kinds[i] == 'op' and token in OPEN:
                stack.append(i)
            elif self.kinds[i] == 'op' and token in CLOSE:
                j = stack.pop()
                self.match[i], self.match[j] = j, i
                if token == ')' and self.tokens[j - 1] in ('if', 'for', 'while', 'switch', 'catch'):
                    self.heads.add(i)

    def functions(self):
        """The bodies of functions: the positions of their brackets and the tokens before them."""
        i, head = 0, []
        while i < len(self.tokens):
            token = self.tokens[i]
            if token == '{' and not SCOPES & set(head):
                if '(' in head:
                    yield i, self.match[i], head
                    head = []
                i = self.match[i]
            elif token in (';', '{', '}'):
                head = []
            else:
                head.append(token)
            i += 1

    def find_fixed(self):
        """The tokens whose value the compiler must know, or that are not an expression."""
        self.fixed = set()
        for i in range(self.begin, self.end):
            token, last = self.tokens[i], i
            if token in FIXED and self.tokens[i - 1] == 'if':
                last = self.match[i + 1]
            elif token in FIXED:
                last = self.tokens.index(';', i)
            elif token == 'case':
                last = self.tokens.index(':', i)
            elif token in FIXED_CALLS and self.tokens[i + 1] == '(':
                last = self.match[i + 1]
            self.fixed.update(range(i, last + 1) if last > i else [])

    def spaced(self, i):
        (start, end) = self.spans[i]
        return self.text[start - 1].isspace() and self.text[end].isspace()

    def binary(self, i):
        return self.kinds[i] == 'op' and self.tokens[i] in PRECEDENCE and self.spaced(i)

    def braces_a_value(self, i):
        """Whether the } at i ends a value such as I{0}."""
        j = self.match[i]
        return self.spans[j - 1][1] == self.spans[j][0] and self.kinds[j - 1] == 'name'

    def left(self, i, precedence):
        """The first token of the operand that ends before token i."""
        while True:
            i -= 1
            token = self.tokens[i]
            if token in CLOSE:
                if i in self.heads or (token == '}' and not self.braces_a_value(i)):
                    return i + 1
                i = self.match[i]
            elif (token in OPEN or token in (';', ',', '?', ':', 'return', 'else', 'throw') or
                  (self.binary(i) and PRECEDENCE[token] < precedence)):
                return i + 1

    def right(self, i, precedence):
        """The last token of the operand that starts after token i."""
        while True:
            i += 1
            token = self.tokens[i]
            if token in OPEN:
                i = self.match[i]
            elif (token in CLOSE or token in (';', ',') or
                  (token in ('?', ':') and precedence > 1) or
                  (self.binary(i) and PRECEDENCE[token] <= precedence)):
                return i - 1

    def add(self, first, last, kind, changes, before, after, inside=()):
        self.sites.append(Site(self.spans[first][0], self.spans[last][1], kind, changes, before,
                               after, [(*self.spans[i], new) for i, new in inside]))

    def look_at(self, i):
        token, kind = self.tokens[i], self.kinds[i]
        if kind == 'string':
            self.add(i, i, 'message', [f'{token} changed'], f'(Mutants::Active(%) ? "?" {token} : ',
                     ')')
        elif kind == 'number':
            self.number(i)
        elif kind == 'op' and token == '?':
            self.condition(self.left(i, 2), i - 1)
        elif self.binary(i) and token in LOGIC:
            first, last = self.left(i, PRECEDENCE[token]), self.right(i, PRECEDENCE[token])
            self.add(first, last, 'logic', [f'{token} -> {LOGIC[token]}'], '((Mutants::Flip(%, ',
                     ')) != Mutants::Active(%))', [(i, f') {token} Mutants::Flip(%, ')])
        elif self.binary(i) and token in BINARY:
            name, function, others = BINARY[token]
            first, last = self.left(i, PRECEDENCE[token]), self.right(i, PRECEDENCE[token])
            self.add(first, last, name, [f'{token} -> {other}' for other in others],
                     f'Mutants::{function}(%, ', ')', [(i, ',')])
        elif token in ('if', 'while') and self.tokens[i + 1] == '(':
            if '=' not in self.tokens[i + 2:self.match[i + 1]]:
                self.condition(i + 2, self.match[i + 1] - 1)
        elif token == 'return':
            self.returned(i)
        elif token in OTHER_NAME:
            self.name(i)
        elif CONSTANT.fullmatch(token) and not SYSTEM_CONSTANT.fullmatch(token):
            self.constant(i)
        self.statement(i)

    def condition(self, first, last):
        operators, i = set(), first
        while i <= last:
            if self.binary(i):
                operators.add(self.tokens[i])
            i = self.match[i] + 1 if self.tokens[i] in OPEN else i + 1
        if operators & {'==', '!='} and not operators & set(LOGIC):
            return  # exchanging the relation is the same as negating the condition
        self.add(first, last, 'condition', ['negated'], 'Mutants::Flip(%, ', ')')

    def number(self, i):
        if not (self.template_argument(i) or self.whole_return(i, i) or
                self.tokens[i + 1] == '}' and self.braces_a_value(i + 1)):
            token = self.tokens[i]
            self.add(i, i, 'constant', [f'{token} + 1', f'{token} - 1'], 'Mutants::PlusOrMinus(%, ',
                     ')')

    def template_argument(self, i):
        return ((self.tokens[i - 1] == '<' and not self.spaced(i - 1)) or
                (self.tokens[i + 1] == '>' and not self.spaced(i + 1)))

    def whole_return(self, first, last):
        return self.tokens[first - 1] == 'return' and self.tokens[last + 1] == ';'

    def constant(self, i):
        first = i
        while self.tokens[first - 1] == '::' and self.kinds[first - 2] == 'name':
            first -= 2
        token = self.tokens[i]
        alone = first == i and len(token) < 3  # T, I, M: a type
        if (alone or self.tokens[i + 1] in ('::', '(', '{', '<') or self.kinds[i + 1] == 'name' or
                self.tokens[first - 1] == '::' or self.template_argument(i) or
                self.whole_return(first, i)):
            return
        change = f'not {token}' if token in ('true', 'false') else f'{token} + 1'
        self.add(first, i, 'constant', [change], 'Mutants::Plus(%, ', ')')

    def returned(self, i):
        last = self.right(i, 0)
        if last <= i or self.tokens[i + 1] == '{' or self.tokens[last + 1] != ';':
            last = self.tokens.index(';', i) - 1  # a condition: a ? b : c
        if last <= i or self.tokens[i + 1] == '{':
            return
        declared = self.head[:self.head.index('(')]
        if 'PavexStatus' in declared:
            changes = ['success and failure exchanged', 'another failure']
            if self.tokens[i + 1:last + 1] == ['STATUS_OK']:
                changes.pop()
            self.add(i + 1, last, 'returned', changes, 'Mutants::Status(%, ', ')')
        elif 'bool' in declared or {'int', 'long', 'size_t', 'int64_t'} & set(declared):
            change = 'negated' if 'bool' in declared else '+ 1'
            self.add(i + 1, last, 'returned', [change], 'Mutants::Plus(%, ', ')')

    def name(self, i):
        token, other, before = self.tokens[i], OTHER_NAME[self.tokens[i]], self.tokens[i - 1]
        called = '()' if self.tokens[i + 1] == '(' else ''
        change = [f'{token} -> {other}']
        if before in ('.', '->'):
            if called:
                return
            lambdas = ''.join(f', [](auto&& o) -> auto& {{ return o.{n}; }}' for n in (token, other))
            self.add(self.chain(i - 2), i, 'name', change,
                     'Mutants::Exchange(%, ' + ('*' if before == '->' else ''), ')',
                     [(i - 1, ''), (i, lambdas)])
        elif (self.kinds[i - 1] == 'op' and before not in ('::', '&', '*', '>', '.*') and
              not called and (other[0] == 'm' or other in self.tokens[self.begin:self.end] or
                              other in self.head)):
            self.add(i, i, 'name', change, f'(Mutants::Active(%) ? {other} : ', ')')

    def chain(self, i):
        """The first token of a.b[c]->d(e), which ends at token i."""
        while True:
            if self.tokens[i] in (')', ']'):
                i = self.match[i]
                if self.tokens[i - 1] in OPEN or self.kinds[i - 1] == 'op':
                    return i
                i -= 1
                continue
            if self.tokens[i - 1] not in ('.', '->', '::'):
                return i
            i -= 2

    def statement(self, i):
        before = self.tokens[i - 1]
        label = before == ':' and 'case' in self.tokens[max(i - 6, 0):i]
        starts = before in (';', '{', '}', 'else', 'do') or (i - 1) in self.heads or label
        if not starts or self.tokens[i] in NO_STATEMENT or self.tokens[i] in '{};':
            return
        last, acts = i, self.tokens[i] == 'delete'
        while self.tokens[last] != ';':
            token = self.tokens[last]
            if token in CLOSE:
                return
            if not acts and last > i and self.kinds[last] == 'name' and (
                    self.text[self.spans[last][0] - 1].isspace()):
                return  # two words in a row: a declaration
            acts = acts or token in ('(', '=', '++', '--') or (
                token in PRECEDENCE and self.spaced(last))
            last = self.match[last] + 1 if token in OPEN else last + 1
        if acts:
            self.add(i, last, 'removed', ['statement removed'], '{ if (!Mutants::Active(%)) ', ' }')


def render(text, sites):
    """The source in which every site may be mutated, and the position of each site in it."""
    events = []
    for order, site in enumerate(sites):
        number = str(site.first)
        inner = 1 if site.inside else 0  # the inner one of two sites with the same text
        events.append(((site.start, 1, -site.end, inner, order), site,
                       site.before.replace('%', number)))
        events.append(((site.end, 0, -site.start, -inner, -order), site,
                       site.after.replace('%', number)))
        events += [((start, 2, 0, 0, 0), (start, end), new.replace('%', number))
                   for start, end, new in site.inside]
    out, length, at, spans = [], 0, 0, {}
    for (position, *_), what, new in sorted(events, key=lambda event: event[0]):
        piece = text[at:position]
        out.append(piece + new)
        length += len(piece)
        if isinstance(what, Site):
            spans.setdefault(what.first, []).append(length)
        length += len(new)
        at = what[1] if isinstance(what, tuple) else position
    out.append(text[at:])
    return ''.join(out), spans
