import { describe, expect, it } from 'vitest';
import { relativeHref, resourceKey } from '../../src/publication/hrefs';
import { parsePackageDocument } from '../../src/publication/PackageDocument';

const base = 'tomekeeper://publication/6F1E2D3C-4B5A-4968-8776-A5B4C3D2E1F0/OEBPS/';
const packageURL = `${base}content.opf`;

const epub3Package = `<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="uid" prefix="rendition: http://www.idpf.org/vocab/rendition/#">
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
    <dc:identifier id="isbn">urn:isbn:0000</dc:identifier>
    <dc:identifier id="uid">  urn:uuid:1234  </dc:identifier>
    <dc:title id="sub">A Subtitle</dc:title>
    <dc:title id="main">The   Main
      Title</dc:title>
    <meta refines="#main" property="title-type">main</meta>
    <meta refines="#sub" property="title-type">subtitle</meta>
    <dc:creator id="c1">Ada Writer</dc:creator>
    <dc:creator id="c2">Bo Illustrator</dc:creator>
    <dc:creator>  </dc:creator>
    <dc:language>en</dc:language>
    <meta property="rendition:layout">reflowable</meta>
  </metadata>
  <manifest>
    <item id="nav" href="nav.xhtml" media-type="application/xhtml+xml" properties="nav"/>
    <item id="cover" href="images/cover.jpg" media-type="image/jpeg" properties="cover-image"/>
    <item id="c1" href="text/chapter%201.xhtml" media-type="application/xhtml+xml"/>
    <item id="c2" href="text/chapter2.xhtml" media-type="application/xhtml+xml" properties="scripted"/>
    <item id="notes" href="../notes.xhtml" media-type="application/xhtml+xml"/>
    <item id="toc" href="toc.ncx" media-type="application/x-dtbncx+xml"/>
  </manifest>
  <spine toc="toc" page-progression-direction="rtl">
    <itemref idref="c1"/>
    <itemref idref="missing"/>
    <itemref idref="c2" properties="rendition:layout-pre-paginated page-spread-left"/>
    <itemref idref="notes" linear="no"/>
  </spine>
</package>`;

describe('PackageDocument', () => {
  const parsed = parsePackageDocument(epub3Package, packageURL, base);
  it.each<[string, (document: typeof parsed) => unknown, unknown]>([
    ['ReadsTheMainTitleAndEveryCreatorInOrder', (d) => [d.title, d.creators, d.language, d.version], ['The Main Title', ['Ada Writer', 'Bo Illustrator'], 'en', '3.0']],
    ['ReadsTheUniqueIdentifierNamedByThePackage', (d) => d.uniqueIdentifier, 'urn:uuid:1234'],
    ['FindsTheEpub3CoverImage', (d) => d.coverURL, `${base}images/cover.jpg`],
    ['ResolvesManifestHrefsAgainstThePackage', (d) => [d.manifest.some((item) => item.url === `${base}text/chapter%201.xhtml`), d.navigationDocumentURL, d.ncxURL], [true, `${base}nav.xhtml`, `${base}toc.ncx`]],
    [
      'BuildsTheSpineWithLinearAndCfiSteps',
      (d) => [d.spineCfiStep, d.spine.map((item) => [item.index, item.idref, item.href, item.linear, item.cfiStep])],
      [6, [[0, 'c1', 'text/chapter%201.xhtml', true, 2], [1, 'c2', 'text/chapter2.xhtml', true, 6], [2, 'notes', '../notes.xhtml', false, 8]]],
    ],
    ['ReadsPageProgressionAndLayoutWithItemOverrides', (d) => [d.pageProgressionDirection, d.layout, d.spine.map((item) => item.layout)], ['rtl', 'reflowable', ['reflowable', 'pre-paginated', 'reflowable']]],
  ])('%s', (_name, read, expected) => {
    expect(read(parsed)).toEqual(expected);
  });

  it('ReadsAPrePaginatedBook', () => {
    const text = epub3Package.replace('<meta property="rendition:layout">reflowable</meta>', '<meta property="rendition:layout">pre-paginated</meta>');
    const parsed = parsePackageDocument(text, packageURL, base);
    expect(parsed.layout).toBe('pre-paginated');
    expect(parsed.spine[0]?.layout).toBe('pre-paginated');
  });

  it('FindsTheEpub2CoverMeta', () => {
    const text = `<package xmlns="http://www.idpf.org/2007/opf" version="2.0" unique-identifier="id">
      <metadata xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:opf="http://www.idpf.org/2007/opf">
        <dc:title>Old Book</dc:title>
        <dc:creator opf:role="aut">First Author</dc:creator>
        <dc:identifier id="id">abc</dc:identifier>
        <meta name="cover" content="cover-img"/>
      </metadata>
      <manifest>
        <item id="cover-img" href="cover.png" media-type="image/png"/>
        <item id="text" href="text.html" media-type="application/xhtml+xml"/>
        <item id="ncx" href="toc.ncx" media-type="application/x-dtbncx+xml"/>
      </manifest>
      <spine toc="ncx"><itemref idref="text"/></spine>
    </package>`;
    const parsed = parsePackageDocument(text, packageURL, base);
    expect(parsed.title).toBe('Old Book');
    expect(parsed.creators).toEqual(['First Author']);
    expect(parsed.coverURL).toBe(`${base}cover.png`);
    expect(parsed.pageProgressionDirection).toBe('default');
    expect(parsed.navigationDocumentURL).toBeUndefined();
    expect(parsed.ncxURL).toBe(`${base}toc.ncx`);
  });

  // A cover meta names a manifest item or an image's href; one that names a document is no cover.
  it.each([
    ['TakesAnEpub2CoverMetaThatNamesAnHref', 'img/c.jpg', `${base}img/c.jpg`],
    ['IgnoresACoverMetaThatNamesADocument', 't', undefined],
  ])('%s', (_name, content, cover) => {
    const text = `<package xmlns="http://www.idpf.org/2007/opf" version="2.0">
      <metadata xmlns:dc="http://purl.org/dc/elements/1.1/"><meta name="cover" content="${content}"/></metadata>
      <manifest><item id="i" href="img/c.jpg" media-type="image/jpeg"/><item id="t" href="t.xhtml" media-type="application/xhtml+xml"/></manifest>
      <spine><itemref idref="t"/></spine></package>`;
    const parsed = parsePackageDocument(text, packageURL, base);
    expect([parsed.coverURL, parsed.title, parsed.creators]).toEqual([cover, undefined, []]);
  });

  it('FramesOnlySpineItemsOfARenderedType', () => {
    const cases: [string, boolean][] = [
      ['application/xhtml+xml', true],
      ['text/html', true],
      ['Application/XHTML+XML', true],
      ['image/svg+xml', false],
      ['application/xml', false],
      ['text/xml', false],
      ['application/x-dtbook+xml', false],
      ['image/jpeg', false],
      ['', false],
    ];
    for (const [mediaType, framed] of cases) {
      const text = `<package xmlns="http://www.idpf.org/2007/opf"><metadata/><manifest>
        <item id="page" href="page.xhtml" media-type="application/xhtml+xml"/>
        <item id="other" href="other" media-type="${mediaType}"/>
      </manifest><spine><itemref idref="other"/><itemref idref="page"/></spine></package>`;
      const spine = parsePackageDocument(text, packageURL, base).spine;
      expect(spine.map((item) => [item.index, item.idref, item.cfiStep]), mediaType).toEqual(
        framed ? [[0, 'other', 2], [1, 'page', 4]] : [[0, 'page', 4]],
      );
    }
  });

  it('FollowsManifestFallbacksToAFramedTypeAndRefusesCycles', () => {
    const cases: [string, string, string[]][] = [
      ['a JSON item falls back to XHTML', '<item id="a" href="a.json" media-type="application/json" fallback="x"/>', ['a:x.xhtml']],
      [
        'an XML item falls back through another foreign item',
        '<item id="a" href="a.xml" media-type="application/dtc+xml" fallback="b"/><item id="b" href="b.svg" media-type="image/svg+xml" fallback="x"/>',
        ['a:x.xhtml'],
      ],
      ['a chain that ends unshown is skipped', '<item id="a" href="a.json" media-type="application/json" fallback="b"/><item id="b" href="b.xml" media-type="text/xml"/>', []],
      ['a fallback that names no item is skipped', '<item id="a" href="a.json" media-type="application/json" fallback="nothing"/>', []],
      [
        'a cycle is refused',
        '<item id="a" href="a.json" media-type="application/json" fallback="b"/><item id="b" href="b.json" media-type="application/json" fallback="a"/>',
        [],
      ],
    ];
    for (const [name, items, expected] of cases) {
      const text = `<package xmlns="http://www.idpf.org/2007/opf"><metadata/><manifest>
        <item id="x" href="x.xhtml" media-type="application/xhtml+xml"/>${items}
      </manifest><spine><itemref idref="a"/><itemref idref="x"/></spine></package>`;
      const spine = parsePackageDocument(text, packageURL, base).spine;
      expect(spine.slice(0, -1).map((item) => `${item.idref}:${item.href}`), name).toEqual(expected);
      expect(spine[spine.length - 1]?.cfiStep, name).toBe(4);
      // What is skipped is told to the section that follows it, for its notice.
      expect(spine[spine.length - 1]?.skippedBefore.map((item) => item.href), name).toEqual(expected.length === 0 ? ['a.json'] : []);
    }
    const atTheEnd = parsePackageDocument(
      `<package xmlns="http://www.idpf.org/2007/opf"><metadata/><manifest>
        <item id="x" href="x.xhtml" media-type="application/xhtml+xml"/><item id="j" href="j.json" media-type="application/json"/>
      </manifest><spine><itemref idref="x"/><itemref idref="j"/><itemref idref="gone"/></spine></package>`,
      packageURL,
      base,
    );
    expect(atTheEnd.skippedAtEnd).toEqual([
      { idref: 'j', href: 'j.json', mediaType: 'application/json' },
      { idref: 'gone', href: 'gone', mediaType: undefined },
    ]);
  });

  it('MapsImagesOfAnUndrawnTypeToTheirImageFallback', () => {
    const text = `<package xmlns="http://www.idpf.org/2007/opf"><metadata/><manifest>
      <item id="x" href="x.xhtml" media-type="application/xhtml+xml"/>
      <item id="tiff" href="images/photo.tiff" media-type="image/tiff" fallback="heic"/>
      <item id="heic" href="images/photo.heic" media-type="image/heic" fallback="png"/>
      <item id="png" href="images/photo.png" media-type="image/png"/>
      <item id="jxl" href="images/lost.jxl" media-type="image/jxl"/>
    </manifest><spine><itemref idref="x"/></spine></package>`;
    const fallbacks = parsePackageDocument(text, packageURL, base).imageFallbacks;
    expect([...fallbacks.entries()]).toEqual([
      [resourceKey(`${base}images/photo.tiff`), `${base}images/photo.png`],
      [resourceKey(`${base}images/photo.heic`), `${base}images/photo.png`],
    ]);
  });

  it('ReadsTheDirectionThatTheTitleTheCreatorOrThePackageDeclares', () => {
    const cases: [string, string, string, ('ltr' | 'rtl' | undefined)[]][] = [
      ['nothing declared', '', '<dc:title>T</dc:title><dc:creator>C</dc:creator>', [undefined, undefined]],
      ['the title', '', '<dc:title dir="rtl">T</dc:title><dc:creator>C</dc:creator>', ['rtl', undefined]],
      ['the package', ' dir="rtl"', '<dc:title>T</dc:title><dc:creator>C</dc:creator>', ['rtl', 'rtl']],
      ['the creator over the package', ' dir="rtl"', '<dc:title>T</dc:title><dc:creator dir="ltr">C</dc:creator>', ['rtl', 'ltr']],
      ['an unknown value', '', '<dc:title dir="auto">T</dc:title>', [undefined, undefined]],
    ];
    for (const [name, packageAttributes, metadata, expected] of cases) {
      const text = `<package xmlns="http://www.idpf.org/2007/opf"${packageAttributes}><metadata xmlns:dc="http://purl.org/dc/elements/1.1/">${metadata}</metadata><manifest>
        <item id="x" href="x.xhtml" media-type="application/xhtml+xml"/></manifest><spine><itemref idref="x"/></spine></package>`;
      const parsed = parsePackageDocument(text, packageURL, base);
      expect([parsed.titleDirection, parsed.creatorsDirection], name).toEqual(expected);
    }
  });

  it.each([
    ['RefusesADocumentThatIsNotWellFormed', '<package><metadata>', /well-formed/],
    ['RefusesAPackageWithoutSpineItems', '<package xmlns="http://www.idpf.org/2007/opf"><metadata/><manifest/><spine><itemref idref="x"/></spine></package>', /spine/],
    ['RefusesAnotherRootElement', '<html/>', /package/],
  ])('%s', (_name, text, message) => {
    expect(() => parsePackageDocument(text, packageURL, base)).toThrow(message);
  });
});

describe('PublicationHrefs', () => {
  it('MakesHrefsRelativeToThePackageDirectory', () => {
    expect(relativeHref(`${base}text/a.xhtml#p1`, base)).toBe('text/a.xhtml#p1');
    expect(relativeHref('tomekeeper://publication/6F1E2D3C-4B5A-4968-8776-A5B4C3D2E1F0/x/b.xhtml', base)).toBe('../x/b.xhtml');
  });

  it('ComparesDifferentlyEscapedSpellingsOfOneResource', () => {
    expect(resourceKey(`${base}text/chapter%201.xhtml#x`)).toBe(resourceKey(`${base}text/chapter 1.xhtml`));
  });
});
