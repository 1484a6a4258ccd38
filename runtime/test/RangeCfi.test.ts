import { describe, expect, it } from 'vitest';
import { cfiForRange, resolveCfiRange, type CfiSpinePosition } from '../src/cfi/CfiDocument';
import { runtimeNodeAttribute } from '../src/cfi/ignoredNodes';
import { TextIndex } from '../src/cfi/TextIndex';
import { blockBoundaries, rangeForSpan } from '../src/text/SectionText';
import { findFoldedMatches, TextFolder } from '../src/text/TextFolding';

const spine: CfiSpinePosition = { spineCfiStep: 6, itemCfiStep: 8, idref: 'chapter' };

function xhtml(body: string): Document {
  const text = `<?xml version="1.0" encoding="UTF-8"?><html xmlns="http://www.w3.org/1999/xhtml"><head><title>t</title></head><body>${body}</body></html>`;
  const document = new DOMParser().parseFromString(text, 'application/xhtml+xml');
  expect(document.getElementsByTagName('parsererror')).toHaveLength(0);
  return document;
}

// Every match of `query`, as a range CFI that resolves back to the same characters.
function roundTrippedMatches(document: Document, query: string): { cfi: string; text: string; resolved: string }[] {
  const index = new TextIndex(document.body);
  const folder = new TextFolder('en');
  const matches = findFoldedMatches(folder.fold(index.text, blockBoundaries(document.body)), folder.foldQuery(query));
  return matches.map((span) => {
    const range = rangeForSpan(index, span.start, span.end);
    if (range === undefined) throw new Error('no range');
    const cfi = cfiForRange(range, spine, index);
    const resolved = resolveCfiRange(document, cfi, new TextIndex(document.body));
    const resolvedIndex = new TextIndex(document.body);
    expect(resolvedIndex.positionOfBoundary(resolved.startContainer, resolved.startOffset)).toBe(span.start);
    expect(resolvedIndex.positionOfBoundary(resolved.endContainer, resolved.endOffset)).toBe(span.end);
    return { cfi, text: range.toString(), resolved: resolved.toString() };
  });
}

describe('RangeCfi', () => {
  it('MapsAMatchInOneTextNodeToARangeCfiWithinIt', () => {
    const document = xhtml('<p id="p1">Call me Ishmael.</p>');
    const [match] = roundTrippedMatches(document, 'ishmael');
    expect(match).toEqual({
      cfi: 'epubcfi(/6/8[chapter]!/4/2[p1],/1:8[Call me ,Ishmael.],/1:15[me Ishmael,.])',
      text: 'Ishmael',
      resolved: 'Ishmael',
    });
  });

  it('MapsAMatchSplitByInlineElementsToARangeOverThem', () => {
    const document = xhtml('<p>a <span>wh</span><b>a</b>le and <i>a</i> <em>WH<strong>ALE</strong></em></p>');
    const matches = roundTrippedMatches(document, 'whale');
    expect(matches.map((match) => match.resolved)).toEqual(['whale', 'WHALE']);
    expect(matches[0]?.cfi).toBe('epubcfi(/6/8[chapter]!/4/2,/2/1:0[a ,whale and ],/5:2[a whale, and a WHA])');
  });

  it('KeepsRangesOfMatchesWithDiacriticsAndMarksWhole', () => {
    const document = xhtml('<p>Un cafe\u0301 et un <em>caf</em>é.</p>');
    const matches = roundTrippedMatches(document, 'CAFE');
    expect(matches.map((match) => match.resolved)).toEqual(['cafe\u0301', 'café']);
  });

  it('SpansParagraphsWhenTheMatchCrossesABlockBoundary', () => {
    const document = xhtml('<p>the end.</p><p>Start again</p>');
    const matches = roundTrippedMatches(document, 'end. start');
    expect(matches.map((match) => match.resolved)).toEqual(['end.Start']);
    expect(matches[0]?.cfi).toBe('epubcfi(/6/8[chapter]!/4,/2/1:4[the ,end.Start ],/4/1:5[ end.Start, again])');
  });

  it('LooksThroughNodesThatTheRuntimeAdded', () => {
    const plain = xhtml('<p>one <em>two</em> three</p>');
    const withOverlay = xhtml(`<p>one <span ${runtimeNodeAttribute}="">x</span><em>two</em> three</p>`);
    expect(roundTrippedMatches(withOverlay, 'two').map((match) => match.cfi)).toEqual(
      roundTrippedMatches(plain, 'two').map((match) => match.cfi),
    );
  });
});
