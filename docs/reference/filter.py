#!/usr/bin/env python3
"""Turns the comments of a header into ones that Doxygen reads, and gives the headings of a document names
that its links find.

usage: filter.py HEADER|DOCUMENT

A comment documents what follows it up to the next comment or empty line, and one with an empty line
behind it all that has none of its own, up to the next banner: it is repeated for each. One behind a
declaration or a value documents that. A banner, "// ---- Life ----", begins a group of members; one
that goes on behind a colon says so of each of them that has no comment. The comment at the top is the
file's, and that of a class which has none. That of a struct holds for those of its members that have none.

Left out is what needs no word: what is deleted, copying as the compiler does it, and, of what is protected,
`mf_...` and `m_...` without a comment. A definition outside its class is documented inside. A destructor
and a type have no comment but their own.
"""
import pathlib
import re
import sys

SCOPE = re.compile(r'(class|struct|union|namespace|enum|extern "C")(?!\w)[^;()]*\{$')
BANNER = re.compile(r'// ---- (.*) ----$')
TRAILING = re.compile(r'^(.*\S)\s+// (.*)$')
COPIES = re.compile(r'(\w+)(?: &operator=)?\(const \1 &\w*\)(?: noexcept)?(?: = default)?;$')
DESTRUCTOR = re.compile(r'(virtual )?~')
WORKINGS = re.compile(r'\bmf?_\w+(\(.*\)( const)?|\{\})?;$')
OUTSIDE = re.compile(r'^template .*\w+::(\w+|operator\S+)\(.*\{')


class Scope:
    """What stands between two braces."""

    def __init__(self, isEnum):
        self.isEnum = isEnum
        self.isProtected = False
        self.hasGroup = False
        self.section = []  # the comment of what has none
        self.comment = []  # of the paragraph
        self.common = []  # of the group, from its banner, or of the struct


class Header:
    def __init__(self, top):
        self.out = ['/// @file'] + top + ['']
        self.top = top  # the comment of the file
        self.scopes = [Scope(False)]
        self.isFresh = False  # the comment stands right before what comes now
        self.isOwn = False  # and did before what is being read
        self.isMacro = False  # a #define goes on
        self.code = []  # lines of the declaration that has begun

    def closeGroup(self):
        if self.scopes[-1].hasGroup:
            self.out.append('/// @}')
            self.scopes[-1].hasGroup = False

    def comments(self, whole):
        """Those of a declaration; None where it is to be left out."""
        scope = self.scopes[-1]
        if whole.endswith('= delete;'):
            return None
        if DESTRUCTOR.match(whole) and not self.isOwn:
            return []
        if COPIES.match(whole) and whole.endswith('= default;') and not self.isOwn:
            return None
        if scope.comment and (self.isOwn or not SCOPE.search(whole)):
            return scope.comment
        if SCOPE.search(whole):
            return self.top if len(self.scopes) == 2 and whole.startswith(('class', 'struct')) else []
        if COPIES.match(whole) or OUTSIDE.match(whole) or (scope.isProtected and WORKINGS.search(whole)):
            return None
        return scope.section or scope.common

    def banner(self, title):
        self.closeGroup()
        scope = self.scopes[-1]
        scope.comment = []
        scope.section = []
        scope.common = ['/// ' + title] if ':' in title else []
        if len(self.scopes) > 1 and not scope.isEnum:
            self.out += [f'/// @name {title}', '/// @{']
            scope.hasGroup = True

    def line(self, text):
        bare = text.strip()
        scope = self.scopes[-1]
        banner = BANNER.match(bare)
        if self.isMacro or bare.startswith('#'):
            if not self.isMacro and bare.startswith('#define'):
                self.out += scope.comment
            self.isMacro = bare.endswith('\\')
            self.out.append(text)
        elif self.code:
            self.declaration(text)
        elif banner:
            self.banner(banner.group(1))
        elif bare.startswith('//'):
            if not self.isFresh:
                scope.comment = []
            scope.comment.append('///' + bare[2:])
            self.isFresh = True
        elif not bare:
            if self.isFresh:
                scope.section = scope.comment
            scope.comment = []
            self.isFresh = False
            self.out.append('')
        elif bare in ('public:', 'private:', 'protected:'):
            self.closeGroup()
            scope.isProtected = bare == 'protected:'
            self.out.append(text)
        else:
            self.declaration(text)

    def declaration(self, text):
        if not self.code:
            self.isOwn = self.isFresh
            self.isFresh = False
            if text.strip().startswith('}'):
                self.closeGroup()
                self.scopes.pop()
                self.out.append(text)
                return
        self.code.append(text)
        pieces = [TRAILING.match(each) for each in self.code]
        bare = [(piece.group(1) if piece else each).strip() for piece, each in zip(pieces, self.code)]
        whole = ' '.join(bare)
        opens = SCOPE.search(whole)
        if opens or (whole.count('{') == whole.count('}') and whole.count('(') == whole.count(')') and (
                whole.endswith((';', '}')) or (self.scopes[-1].isEnum and not whole.endswith('=')))):
            self.end(whole, pieces[-1])
        if opens:
            own = self.scopes[-1].comment if self.isOwn else []
            self.scopes.append(Scope(bool(re.match(r'(typedef )?enum\b', whole))))
            if re.match(r'(typedef )?(struct|union)\b', whole):
                self.scopes[-1].common = own

    def end(self, whole, trailing):
        comments = [] if trailing else self.comments(whole)
        if trailing:
            self.code[-1] = f'{trailing.group(1)} ///< {trailing.group(2)}'
        if comments is not None:
            self.out += comments + self.code
        self.code = []


def document(path, text):
    """Names are of the whole reference, so that of the document stands before that of the heading."""
    def heading(match):
        words = re.sub(r'[^\w -]', '', match.group(2).lower()).replace(' ', '-')
        return f'{match.group(1)} {match.group(2)} {{#{path.stem}_{words}}}'
    text = re.sub(r'^(##+) (.*)$', heading, text, flags=re.M)
    return re.sub(r'\]\((?:[^()#:]*?(\w+)\.md)?#([^)]*)\)',
                  lambda link: f'](#{link.group(1) or path.stem}_{link.group(2)})', text)


def main():
    path = pathlib.Path(sys.argv[1])
    text = path.read_text(encoding='utf-8')
    if path.suffix == '.md':
        print(document(path, text))
        return
    lines = text.splitlines()
    top = next((i for i, line in enumerate(lines) if not line.startswith('//')), len(lines))
    header = Header(['///' + line[2:] for line in lines[:top]])
    for line in lines[top:]:
        header.line(line)
    print('\n'.join(header.out))


main()
