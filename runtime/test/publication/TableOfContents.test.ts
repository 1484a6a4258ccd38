import { describe, expect, it } from 'vitest';
import type { TableOfContentsItem } from '../../src/bridge/records';
import { parseNavigationDocument, parseNCX } from '../../src/publication/TableOfContents';

const base = 'tomekeeper://publication/6F1E2D3C-4B5A-4968-8776-A5B4C3D2E1F0/OEBPS/';

const navigationDocument = `<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops">
<head><title>Contents</title></head>
<body>
  <nav epub:type="landmarks"><ol><li><a href="text/cover.xhtml">Cover</a></li></ol></nav>
  <nav epub:type="toc" id="toc">
    <h1>Contents</h1>
    <ol>
      <li><a href="text/ch1.xhtml">Chapter
        <em>One</em></a></li>
      <li><span>Part Two</span>
        <ol>
          <li><a href="text/ch2.xhtml#s1">Section 2.1</a>
            <ol><li><a href="text/ch2.xhtml#s1-1">Deeper</a></li></ol>
          </li>
          <li><a href="../extra/ch3.xhtml">Section 2.2</a></li>
        </ol>
      </li>
      <li><a href="text/ch4.xhtml"><img src="x.png" alt="Picture chapter"/></a></li>
    </ol>
  </nav>
  <nav epub:type="page-list" hidden=""><ol><li><a href="text/ch1.xhtml#p1">1</a></li></ol></nav>
</body>
</html>`;

// An entry of the contents as the parsers give it.
const entry = (title: string, href: string, ...children: TableOfContentsItem[]): TableOfContentsItem => ({ title, href, children });
const tocNavigation = (links: string) =>
  `<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops"><body><nav epub:type="toc"><ol>${links}</ol></nav></body></html>`;

describe('NavigationDocument', () => {
  it.each<[string, string, string, TableOfContentsItem[]]>([
    [
      'ReadsTheTocNavigationWithNestedChildren',
      navigationDocument,
      'nav.xhtml',
      [
        entry('Chapter One', 'text/ch1.xhtml'),
        entry('Part Two', 'text/ch2.xhtml#s1', entry('Section 2.1', 'text/ch2.xhtml#s1', entry('Deeper', 'text/ch2.xhtml#s1-1')), entry('Section 2.2', '../extra/ch3.xhtml')),
        entry('Picture chapter', 'text/ch4.xhtml'),
      ],
    ],
    ['ResolvesLinksAgainstTheNavigationDocumentsOwnDirectory', tocNavigation('<li><a href="ch1.xhtml#a">One</a></li>'), 'text/nav.xhtml', [entry('One', 'text/ch1.xhtml#a')]],
    [
      'FallsBackToTheHtmlParserForMarkupThatIsNotWellFormed',
      '<html><body><nav epub:type="toc"><ol><li><a href="a.xhtml">A<br></a></li></ol></nav></body></html>',
      'nav.xhtml',
      [entry('A', 'a.xhtml')],
    ],
  ])('%s', (_name, text, location, expected) => {
    expect(parseNavigationDocument(text, `${base}${location}`, base)).toEqual(expected);
  });

  it('KeepsNonAsciiFragmentsReachable', () => {
    const [item] = parseNavigationDocument(tocNavigation('<li><a href="ch1.xhtml#見出し">見出し</a></li>'), `${base}nav.xhtml`, base);
    expect(decodeURIComponent(item?.href ?? '')).toBe('ch1.xhtml#見出し');
  });
});

const ncx = `<?xml version="1.0" encoding="UTF-8"?>
<ncx xmlns="http://www.daisy.org/z3986/2005/ncx/" version="2005-1">
  <head><meta name="dtb:uid" content="x"/></head>
  <docTitle><text>Book</text></docTitle>
  <navMap>
    <navPoint id="n1" playOrder="1">
      <navLabel><text>Chapter 1</text></navLabel>
      <content src="text/ch1.xhtml"/>
      <navPoint id="n1-1" playOrder="2">
        <navLabel><text>  Section
          1.1 </text></navLabel>
        <content src="text/ch1.xhtml#s1"/>
        <navPoint id="n1-1-1" playOrder="3">
          <navLabel><text>Deep</text></navLabel>
          <content src="text/ch1.xhtml#d"/>
        </navPoint>
      </navPoint>
    </navPoint>
    <navPoint id="n2" playOrder="4">
      <navLabel><text>Chapter 2</text></navLabel>
      <content src="text/ch2.xhtml"/>
    </navPoint>
  </navMap>
</ncx>`;

describe('NCX', () => {
  it('ReadsNestedNavigationPointsAgainstTheNcxLocation', () => {
    expect(parseNCX(ncx, `${base}toc.ncx`, base)).toEqual([
      entry('Chapter 1', 'text/ch1.xhtml', entry('Section 1.1', 'text/ch1.xhtml#s1', entry('Deep', 'text/ch1.xhtml#d'))),
      entry('Chapter 2', 'text/ch2.xhtml'),
    ]);
    expect(parseNCX(ncx, `${base}nav/toc.ncx`, base)[0]?.href).toBe('nav/text/ch1.xhtml');
  });
});

it.each<[string, () => unknown]>([
  ['RefusesADocumentWithoutNavigation', () => parseNavigationDocument('<html xmlns="http://www.w3.org/1999/xhtml"><body/></html>', `${base}nav.xhtml`, base)],
  ['RefusesAnNcxWithoutNavMap', () => parseNCX('<ncx xmlns="http://www.daisy.org/z3986/2005/ncx/"/>', `${base}toc.ncx`, base)],
])('%s', (_name, parse) => {
  expect(parse).toThrow();
});
