import { describe, expect, it } from 'vitest';
import {
  cfiForPoint,
  cfiForRange,
  CfiResolutionError,
  cfiSpineStep,
  resolveCfiPoint,
  resolveCfiRange,
  type CfiSpinePosition,
} from '../../src/cfi/CfiDocument';
import { runtimeNodeAttribute } from '../../src/cfi/ignoredNodes';
import { TextIndex } from '../../src/cfi/TextIndex';
import { blockBoundaries, rangeForSpan } from '../../src/text/SectionText';
import { findFoldedMatches, TextFolder } from '../../src/text/TextFolding';
import { xhtml } from '../support/sections';

const spine: CfiSpinePosition = { spineCfiStep: 6, itemCfiStep: 4, idref: 'c1' };

function textNodeContaining(document: Document, needle: string): Text {
  const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
  for (let node = walker.nextNode(); node !== null; node = walker.nextNode()) {
    if ((node as Text).data.includes(needle)) return node as Text;
  }
  throw new Error(`no text node holds ${needle}`);
}

// Every text position of the body, generated and resolved back, lands on the same position.
function expectEveryTextPositionRoundTrips(document: Document): void {
  const index = new TextIndex(document.body);
  expect(index.text.length).toBeGreaterThan(0);
  for (let position = 0; position <= index.text.length; position += 1) {
    const point = index.pointAt(position);
    if (point === undefined) throw new Error('no point');
    const cfi = cfiForPoint(point, spine, index);
    const resolved = resolveCfiPoint(document, cfi, index);
    expect(resolved.quality, cfi).toBe('exact');
    expect(index.positionOfBoundary(resolved.point.node, resolved.point.offset), cfi).toBe(position);
  }
}

describe('CfiDocument', () => {
  // Where a point is generated from: a text node's offset, or a child offset of an element.
  it.each<[string, string, (document: Document) => { node: Node; offset: number }, string]>([
    ['GeneratesAPathWithIdAssertionsAndTextAssertion', '<section id="s1"><p id="p1">Hello <em>big</em> world</p></section>', (d) => ({ node: textNodeContaining(d, 'world'), offset: 2 }), 'epubcfi(/6/4[c1]!/4/2[s1]/2[p1]/3:2[ello big w,orld])'],
    ['CountsTextSplitByACommentAsOneRun', '<p>abc<!-- note -->def</p>', (d) => ({ node: textNodeContaining(d, 'def'), offset: 1 }), 'epubcfi(/6/4[c1]!/4/2/1:4[abcd,ef])'],
    ['PointsAtAnImageWithoutId', '<p>x<img src="a.png" alt=""/>y</p>', (d) => ({ node: d.body.firstElementChild as Element, offset: 1 }), 'epubcfi(/6/4[c1]!/4/2/2)'],
    ['PointsAfterAnImageIntoTheTextThatFollows', '<p>x<img src="a.png" alt=""/>y</p>', (d) => ({ node: d.body.firstElementChild as Element, offset: 2 }), 'epubcfi(/6/4[c1]!/4/2/3:0[x,y])'],
    [
      'GivesAPointAtTheEndOfAnElementTheEndOfItsLastRun',
      '<p>ab<em>c</em>de</p><p>next</p>',
      (d) => ({ node: d.body.firstElementChild as Element, offset: (d.body.firstElementChild as Element).childNodes.length }),
      'epubcfi(/6/4[c1]!/4/2/3:2[abcde,next])',
    ],
  ])('%s', (_name, body, locate, expected) => {
    expect(cfiForPoint(locate(xhtml(body)), spine)).toBe(expected);
  });

  it('ResolvesAnOffsetIntoTextSplitByAComment', () => {
    const document = xhtml('<p>abc<!-- note -->def</p>');
    expect(resolveCfiPoint(document, 'epubcfi(/6/4[c1]!/4/2/1:4)').point).toEqual({ node: textNodeContaining(document, 'def'), offset: 1 });
  });

  it('GivesTheSameCfiForTextSplitIntoSeveralNodes', () => {
    const whole = xhtml('<p>one two three</p>');
    const split = xhtml('<p>one two three</p>');
    const first = textNodeContaining(split, 'one');
    const rest = first.splitText(4).splitText(4);
    expect(cfiForPoint({ node: rest, offset: 2 }, spine)).toBe(cfiForPoint({ node: textNodeContaining(whole, 'one'), offset: 10 }, spine));
    expect(resolveCfiPoint(split, cfiForPoint({ node: rest, offset: 2 }, spine)).point).toEqual({ node: rest, offset: 2 });
  });

  it('LooksThroughRuntimeNodes', () => {
    const plain = xhtml('<p id="a">first</p><p id="b">second part</p>');
    const withRuntimeNodes = xhtml('<p id="a">first</p><p id="b">second part</p>');
    const style = withRuntimeNodes.createElementNS('http://www.w3.org/1999/xhtml', 'style');
    style.setAttribute(runtimeNodeAttribute, '');
    withRuntimeNodes.head.appendChild(style);
    const marker = withRuntimeNodes.createElementNS('http://www.w3.org/1999/xhtml', 'span');
    marker.setAttribute(runtimeNodeAttribute, '');
    marker.textContent = 'MARK';
    withRuntimeNodes.body.insertBefore(marker, withRuntimeNodes.body.firstChild);
    const second = textNodeContaining(withRuntimeNodes, 'second');
    const after = second.splitText(7);
    const secondMarker = marker.cloneNode(true);
    second.parentNode?.insertBefore(secondMarker, after);
    const expected = cfiForPoint({ node: textNodeContaining(plain, 'second'), offset: 9 }, spine);
    expect(cfiForPoint({ node: after, offset: 2 }, spine)).toBe(expected);
    expect(expected).toBe('epubcfi(/6/4[c1]!/4/4[b]/1:9[tsecond pa,rt])');
    expect(resolveCfiPoint(withRuntimeNodes, expected).point).toEqual({ node: after, offset: 2 });
  });

  it('PointsAtAnImageAndResolvesBackToIt', () => {
    const document = xhtml('<div><p>before</p><img id="fig" src="a.png" alt="a"/><p>after</p></div>');
    const image = document.getElementById('fig') as Element;
    const div = image.parentNode as Element;
    const offset = Array.prototype.indexOf.call(div.childNodes, image) as number;
    const cfi = cfiForPoint({ node: div, offset }, spine);
    expect(cfi).toBe('epubcfi(/6/4[c1]!/4/2/4[fig])');
    const resolved = resolveCfiPoint(document, cfi);
    expect(resolved.quality).toBe('exact');
    expect(resolved.point.node.childNodes[resolved.point.offset]).toBe(image);
  });

  it.each([
    [
      'RoundTripsEveryPositionThroughNestedElements',
      '<div id="d"><section><h1>Title <span>with <b>nested <i>deep</i></b> words</span></h1>' +
        '<p>Para<a href="#x">link</a>graph<br/>line two</p><ul><li>one</li><li><p>two <em>three</em></p></li></ul></section></div>',
      undefined,
      undefined,
    ],
    [
      'RoundTripsEveryPositionInVerticalTextWithRuby',
      '<div style="writing-mode: vertical-rl"><p>賢治の<ruby>夢<rt>ゆめ</rt></ruby>の世界</p>' +
        '<p class="tcy">第<span style="text-combine-upright: all">12</span>章</p></div>',
      '<title>t</title><style>html { writing-mode: vertical-rl; -epub-writing-mode: vertical-rl; }</style>',
      'xml:lang="ja"',
    ],
    ['RoundTripsCharactersOutsideTheBasicPlane', '<p>a😀b<span>𠮷野</span>c</p>', undefined, undefined],
  ])('%s', (_name, body, head, rootAttributes) => {
    expectEveryTextPositionRoundTrips(xhtml(body, head, rootAttributes));
  });

  it('RoundTripsEveryPositionInRightToLeftText', () => {
    const document = xhtml(
      '<p dir="rtl">النظام <b>الغذائي</b> الحقيقي ضد السرطان</p><p dir="rtl">فصل ١٢: <span>مقدمة</span></p>',
      '<title>t</title>',
      'dir="rtl" xml:lang="ar"',
    );
    expectEveryTextPositionRoundTrips(document);
    const cfi = cfiForPoint({ node: textNodeContaining(document, 'الحقيقي'), offset: 3 }, spine);
    expect(cfi).toBe('epubcfi(/6/4[c1]!/4/2/3:3[الغذائي ال,حقيقي ضد ا])');
    expect(resolveCfiPoint(document, cfi).point).toEqual({ node: textNodeContaining(document, 'الحقيقي'), offset: 3 });
  });

  it('FollowsTheIdWhenAnElementWasInsertedBefore', () => {
    const document = xhtml('<p id="a">first</p><p id="b">second paragraph</p>');
    const cfi = cfiForPoint({ node: textNodeContaining(document, 'second'), offset: 7 }, spine);
    const inserted = document.createElementNS('http://www.w3.org/1999/xhtml', 'p');
    inserted.textContent = 'new';
    document.body.insertBefore(inserted, document.body.firstChild);
    const resolved = resolveCfiPoint(document, cfi);
    expect(resolved.quality).toBe('idAssertion');
    expect(resolved.point).toEqual({ node: textNodeContaining(document, 'second'), offset: 7 });
  });

  it('CorrectsAnOffsetByTheTextAssertion', () => {
    const document = xhtml('<p>The quick brown fox jumps over the lazy dog</p>');
    const text = textNodeContaining(document, 'fox');
    const cfi = cfiForPoint({ node: text, offset: text.data.indexOf('jumps') }, spine);
    text.data = `Indeed, ${text.data}`;
    const resolved = resolveCfiPoint(document, cfi);
    expect(resolved.quality).toBe('textAssertion');
    expect(resolved.point.offset).toBe(text.data.indexOf('jumps'));
  });

  it.each([
    ['KeepsAnAssertionThatAgreesWithThePath', '<p>la la la la la la</p>', 'epubcfi(/6/4!/4/2/1:12[ la ,la])', 'exact', 12],
    ['ChoosesTheAssertedTextNearestToThePath', '<p>la la la la la la</p>', 'epubcfi(/6/4!/4/2/1:10[ la ,la])', 'textAssertion', 9],
    ['ReportsATextAssertionThatIsNowhere', '<p>completely different</p>', 'epubcfi(/6/4!/4/2/1:3[abc,def])', 'textAssertionMismatch', 3],
    ['ClampsAnOffsetBeyondTheText', '<p>short</p>', 'epubcfi(/6/4!/4/2/1:99)', 'clamped', 5],
  ])('%s', (_name, body, cfi, quality, offset) => {
    const resolved = resolveCfiPoint(xhtml(body), cfi);
    expect([resolved.quality, resolved.point.offset]).toEqual([quality, offset]);
  });

  it('RefusesAPathThatLeadsNowhere', () => {
    const document = xhtml('<p>short</p>');
    expect(() => resolveCfiPoint(document, 'epubcfi(/6/4!/4/8/1:0)')).toThrow(CfiResolutionError);
    expect(() => resolveCfiPoint(document, 'epubcfi(/6/4!/4/2/5:0)')).toThrow(CfiResolutionError);
    expect(() => resolveCfiPoint(document, 'epubcfi(/6/4!/4/1/2)')).toThrow(CfiResolutionError);
  });

  it('ResolvesAPathWithoutPackagePart', () => {
    const document = xhtml('<p>abc</p>');
    expect(resolveCfiPoint(document, 'epubcfi(/4/2/1:1)').point).toEqual({ node: textNodeContaining(document, 'abc'), offset: 1 });
  });

  it('KeepsTheEarlierNodeForABeforeSideBias', () => {
    const document = xhtml('<p>abc</p>');
    const first = textNodeContaining(document, 'abc');
    const second = first.splitText(2);
    expect(resolveCfiPoint(document, 'epubcfi(/4/2/1:2)').point).toEqual({ node: second, offset: 0 });
    expect(resolveCfiPoint(document, 'epubcfi(/4/2/1:2[ab,c;s=b])').point).toEqual({ node: first, offset: 2 });
  });

  it('GeneratesARangeWithItsCommonParent', () => {
    const document = xhtml('<p id="p">Hello <em>big</em> world</p>');
    const range = document.createRange();
    range.setStart(textNodeContaining(document, 'Hello'), 1);
    range.setEnd(textNodeContaining(document, 'world'), 3);
    const cfi = cfiForRange(range, spine);
    expect(cfi).toBe('epubcfi(/6/4[c1]!/4/2[p],/1:1[H,ello big w],/3:3[llo big wo,rld])');
    const resolved = resolveCfiRange(document, cfi);
    expect(resolved.toString()).toBe('ello big wo');
  });

  it('RoundTripsRangesAcrossElements', () => {
    const document = xhtml('<h1>Head <b>bold</b></h1><p>One <i>two</i> three</p><div><p>four <span>five</span></p></div>');
    const index = new TextIndex(document.body);
    for (let start = 0; start < index.text.length; start += 3) {
      for (let end = start + 1; end <= index.text.length; end += 4) {
        const range = document.createRange();
        const startPoint = index.pointAt(start) as { node: Node; offset: number };
        const endPoint = index.pointAt(end, true) as { node: Node; offset: number };
        range.setStart(startPoint.node, startPoint.offset);
        range.setEnd(endPoint.node, endPoint.offset);
        const resolved = resolveCfiRange(document, cfiForRange(range, spine, index), index);
        expect(resolved.toString()).toBe(range.toString());
      }
    }
  });

  it('ReadsTheSpineStepOfTheCfi', () => {
    expect(cfiSpineStep('epubcfi(/6/4[c1]!/4/2/1:0)')).toEqual({ itemCfiStep: 4, idref: 'c1' });
    expect(cfiSpineStep('epubcfi(/4/2/1:0)')).toBeUndefined();
  });
});

const rangeSpine: CfiSpinePosition = { spineCfiStep: 6, itemCfiStep: 8, idref: 'chapter' };

// Every match of `query`, as a range CFI that resolves back to the same characters.
function roundTrippedMatches(document: Document, query: string): { cfi: string; text: string; resolved: string }[] {
  const index = new TextIndex(document.body);
  const folder = new TextFolder('en');
  const matches = findFoldedMatches(folder.fold(index.text, blockBoundaries(document.body)), folder.foldQuery(query));
  return matches.map((span) => {
    const range = rangeForSpan(index, span.start, span.end);
    if (range === undefined) throw new Error('no range');
    const cfi = cfiForRange(range, rangeSpine, index);
    const resolved = resolveCfiRange(document, cfi, new TextIndex(document.body));
    const resolvedIndex = new TextIndex(document.body);
    expect(resolvedIndex.positionOfBoundary(resolved.startContainer, resolved.startOffset)).toBe(span.start);
    expect(resolvedIndex.positionOfBoundary(resolved.endContainer, resolved.endOffset)).toBe(span.end);
    return { cfi, text: range.toString(), resolved: resolved.toString() };
  });
}

describe('RangeCfi', () => {
  // Every match resolves back to its characters (checked in roundTrippedMatches); the first
  // match's CFI where given.
  it.each<[string, string, string, string[], string | undefined]>([
    ['MapsAMatchInOneTextNodeToARangeCfiWithinIt', '<p id="p1">Call me Ishmael.</p>', 'ishmael', ['Ishmael'], 'epubcfi(/6/8[chapter]!/4/2[p1],/1:8[Call me ,Ishmael.],/1:15[me Ishmael,.])'],
    [
      'MapsAMatchSplitByInlineElementsToARangeOverThem',
      '<p>a <span>wh</span><b>a</b>le and <i>a</i> <em>WH<strong>ALE</strong></em></p>',
      'whale',
      ['whale', 'WHALE'],
      'epubcfi(/6/8[chapter]!/4/2,/2/1:0[a ,whale and ],/5:2[a whale, and a WHA])',
    ],
    ['KeepsRangesOfMatchesWithDiacriticsAndMarksWhole', '<p>Un cafe\u0301 et un <em>caf</em>é.</p>', 'CAFE', ['cafe\u0301', 'café'], undefined],
    ['SpansParagraphsWhenTheMatchCrossesABlockBoundary', '<p>the end.</p><p>Start again</p>', 'end. start', ['end.Start'], 'epubcfi(/6/8[chapter]!/4,/2/1:4[the ,end.Start ],/4/1:5[ end.Start, again])'],
  ])('%s', (_name, body, query, resolved, firstCfi) => {
    const matches = roundTrippedMatches(xhtml(body), query);
    expect(matches.map((match) => match.resolved)).toEqual(resolved);
    expect(matches.map((match) => match.text)).toEqual(resolved);
    if (firstCfi !== undefined) expect(matches[0]?.cfi).toBe(firstCfi);
  });

  it('LooksThroughNodesThatTheRuntimeAdded', () => {
    const plain = xhtml('<p>one <em>two</em> three</p>');
    const withOverlay = xhtml(`<p>one <span ${runtimeNodeAttribute}="">x</span><em>two</em> three</p>`);
    expect(roundTrippedMatches(withOverlay, 'two').map((match) => match.cfi)).toEqual(
      roundTrippedMatches(plain, 'two').map((match) => match.cfi),
    );
  });
});
