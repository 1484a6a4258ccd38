import { describe, expect, it } from 'vitest';
import { isNote, isNoteReference, linkDestination, pageTurnOfClick } from '../../src/reader/SectionClicks';

const root = 'tomekeeper://publication/6f1e2d3c-4b5a-4968-8776-a5b4c3d2e1f0/';
const section = `${root}OEBPS/text/c1.xhtml`;
const spine = new Set([`${root}OEBPS/text/c1.xhtml`, `${root}OEBPS/text/c2.xhtml`, `${root}OEBPS/nav.xhtml`]);
const spineIndexOf = (url: string): number | undefined => (spine.has(url) ? 0 : undefined);

describe('linkDestination', () => {
  it.each([
    ['c2.xhtml#note', { kind: 'section', url: `${root}OEBPS/text/c2.xhtml#note` }],
    ['#here', { kind: 'section', url: `${section}#here` }],
    ['../nav.xhtml', { kind: 'section', url: `${root}OEBPS/nav.xhtml` }],
    ['c%32.xhtml', { kind: 'section', url: `${root}OEBPS/text/c%32.xhtml` }],
    ['../images/photo.jpg', { kind: 'publication-resource' }],
    // ".." stops at the publication's root, and "/" starts there.
    ['../../../../../OEBPS/nav.xhtml', { kind: 'section', url: `${root}OEBPS/nav.xhtml` }],
    ['/OEBPS/text/c2.xhtml#note', { kind: 'section', url: `${root}OEBPS/text/c2.xhtml#note` }],
    ['../../../../../etc/passwd', { kind: 'publication-resource' }],
    ['//elsewhere/OEBPS/nav.xhtml', { kind: 'invalid' }],
    ['https://example.org/', { kind: 'outside' }],
    ['mailto:someone@example.org', { kind: 'outside' }],
    ['javascript:alert(1)', { kind: 'outside' }],
    ['tomekeeper://publication/00000000-0000-4000-8000-000000000000/OEBPS/text/c2.xhtml', { kind: 'invalid' }],
    ['http://[', { kind: 'invalid' }],
  ])('%s', (href, expected) => {
    expect(linkDestination(href, section, root, spineIndexOf)).toEqual(expected);
  });
});

describe('pageTurnOfClick', () => {
  it.each([
    [10, 'ltr', 'previous'],
    [990, 'ltr', 'next'],
    [10, 'rtl', 'next'],
    [990, 'rtl', 'previous'],
    [500, 'ltr', undefined],
    [500, 'rtl', undefined],
  ] as const)('a click at %d in a %s book', (x, progression, expected) => {
    expect(pageTurnOfClick(x, 0, 1000, progression)).toBe(expected);
  });
});

describe('notes', () => {
  const doc = new DOMParser().parseFromString(
    `<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops"><body>
      <a id="epub" epub:type="noteref" href="#n1">1</a><a id="role" role="doc-noteref" href="#n1">1</a><a id="plain" href="#n1">1</a>
      <aside id="n1" epub:type="footnote">A note.</aside><aside id="n2" role="doc-endnote">Another.</aside><aside id="n3">Aside.</aside>
    </body></html>`,
    'application/xhtml+xml',
  );
  const element = (id: string): Element => doc.getElementById(id) as Element;

  it('TellsNotesAndTheirReferencesByTypeOrRole', () => {
    expect(['epub', 'role', 'plain'].map((id) => isNoteReference(element(id)))).toEqual([true, true, false]);
    expect(['n1', 'n2', 'n3'].map((id) => isNote(element(id)))).toEqual([true, true, false]);
  });
});
