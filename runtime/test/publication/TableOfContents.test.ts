import { describe, expect, it } from 'vitest';
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

describe('NavigationDocument', () => {
  it('ReadsTheTocNavigationWithNestedChildren', () => {
    const items = parseNavigationDocument(navigationDocument, `${base}nav.xhtml`, base);
    expect(items).toEqual([
      { title: 'Chapter One', href: 'text/ch1.xhtml', children: [] },
      {
        title: 'Part Two',
        href: 'text/ch2.xhtml#s1',
        children: [
          {
            title: 'Section 2.1',
            href: 'text/ch2.xhtml#s1',
            children: [{ title: 'Deeper', href: 'text/ch2.xhtml#s1-1', children: [] }],
          },
          { title: 'Section 2.2', href: '../extra/ch3.xhtml', children: [] },
        ],
      },
      { title: 'Picture chapter', href: 'text/ch4.xhtml', children: [] },
    ]);
  });

  it('ResolvesLinksAgainstTheNavigationDocumentsOwnDirectory', () => {
    const text = `<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops"><body>
      <nav epub:type="toc"><ol><li><a href="ch1.xhtml#a">One</a></li></ol></nav></body></html>`;
    expect(parseNavigationDocument(text, `${base}text/nav.xhtml`, base)).toEqual([
      { title: 'One', href: 'text/ch1.xhtml#a', children: [] },
    ]);
  });

  it('KeepsNonAsciiFragmentsReachable', () => {
    const text = `<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops"><body>
      <nav epub:type="toc"><ol><li><a href="ch1.xhtml#見出し">見出し</a></li></ol></nav></body></html>`;
    const [item] = parseNavigationDocument(text, `${base}nav.xhtml`, base);
    expect(decodeURIComponent(item?.href ?? '')).toBe('ch1.xhtml#見出し');
  });

  it('FallsBackToTheHtmlParserForMarkupThatIsNotWellFormed', () => {
    const text = `<html><body><nav epub:type="toc"><ol><li><a href="a.xhtml">A<br></a></li></ol></nav></body></html>`;
    expect(parseNavigationDocument(text, `${base}nav.xhtml`, base)).toEqual([{ title: 'A', href: 'a.xhtml', children: [] }]);
  });

  it('RefusesADocumentWithoutNavigation', () => {
    expect(() => parseNavigationDocument('<html xmlns="http://www.w3.org/1999/xhtml"><body/></html>', `${base}nav.xhtml`, base)).toThrow();
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
  it('ReadsNestedNavigationPoints', () => {
    expect(parseNCX(ncx, `${base}toc.ncx`, base)).toEqual([
      {
        title: 'Chapter 1',
        href: 'text/ch1.xhtml',
        children: [
          {
            title: 'Section 1.1',
            href: 'text/ch1.xhtml#s1',
            children: [{ title: 'Deep', href: 'text/ch1.xhtml#d', children: [] }],
          },
        ],
      },
      { title: 'Chapter 2', href: 'text/ch2.xhtml', children: [] },
    ]);
  });

  it('ResolvesSourcesAgainstTheNcxLocation', () => {
    const items = parseNCX(ncx, `${base}nav/toc.ncx`, base);
    expect(items[0]?.href).toBe('nav/text/ch1.xhtml');
  });

  it('RefusesAnNcxWithoutNavMap', () => {
    expect(() => parseNCX('<ncx xmlns="http://www.daisy.org/z3986/2005/ncx/"/>', `${base}toc.ncx`, base)).toThrow();
  });
});
