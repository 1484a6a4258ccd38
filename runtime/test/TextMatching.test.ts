import { describe, expect, it } from 'vitest';
import { anchorCandidates, anchorQuote, matchCollapsedAt } from '../src/text/Anchoring';
import { blockBoundaries, excerptAround } from '../src/text/SectionText';
import { findFoldedMatches, TextFolder } from '../src/text/TextFolding';
import { TextIndex } from '../src/cfi/TextIndex';

function matchedTexts(original: string, query: string, language?: string, boundaries: number[] = []): string[] {
  const folder = new TextFolder(language);
  return findFoldedMatches(folder.fold(original, boundaries), folder.foldQuery(query)).map((span) => original.slice(span.start, span.end));
}

function xhtmlBody(body: string): HTMLElement {
  const text = `<?xml version="1.0" encoding="UTF-8"?><html xmlns="http://www.w3.org/1999/xhtml"><head><title>t</title></head><body>${body}</body></html>`;
  const document = new DOMParser().parseFromString(text, 'application/xhtml+xml');
  return document.body;
}

describe('TextFolder', () => {
  it('IgnoresCase', () => {
    expect(matchedTexts('The Whale and the WHALE and the whale.', 'whale')).toEqual(['Whale', 'WHALE', 'whale']);
  });

  it('IgnoresDiacriticsOnEitherSide', () => {
    expect(matchedTexts('Un café, deux cafés, trois CAFE.', 'cafe')).toEqual(['café', 'café', 'CAFE']);
    expect(matchedTexts('a naive idea', 'naïve')).toEqual(['naive']);
  });

  it('KeepsDecomposedMarksWithTheirLetter', () => {
    const decomposed = 'cafe\u0301 noir';
    expect(matchedTexts(decomposed, 'café')).toEqual(['cafe\u0301']);
  });

  it('FoldsLigaturesAndFullWidthLetters', () => {
    expect(matchedTexts('a diﬃcult ﬁnish', 'difficult')).toEqual(['diﬃcult']);
    expect(matchedTexts('ＡＢＣ letters', 'abc')).toEqual(['ＡＢＣ']);
  });

  it('FoldsSharpSAndFinalSigma', () => {
    expect(matchedTexts('Die Straße ist lang', 'strasse')).toEqual(['Straße']);
    expect(matchedTexts('ΟΔΥΣΣΕΥΣ and Οδυσσευς', 'οδυσσευσ')).toEqual(['ΟΔΥΣΣΕΥΣ', 'Οδυσσευς']);
  });

  it('UsesTheBooksLocaleForCase', () => {
    // In Turkish the capital of "i" is the dotted "İ".
    expect(matchedTexts('İstanbul', 'istanbul', 'tr')).toEqual(['İstanbul']);
    expect(matchedTexts('ISPARTA', 'isparta', 'tr')).toEqual([]);
    expect(matchedTexts('ISPARTA', 'isparta', 'en')).toEqual(['ISPARTA']);
  });

  it('IgnoresSoftHyphensAndZeroWidthCharacters', () => {
    expect(matchedTexts('a har\u00adpoon and a har\u200bpoon', 'harpoon')).toEqual(['har\u00adpoon', 'har\u200bpoon']);
  });

  it('TreatsTypographicApostrophesAsPlainOnes', () => {
    expect(matchedTexts('I don\u2019t know', "don't")).toEqual(['don\u2019t']);
  });

  it('MatchesAcrossAnyRunOfWhiteSpace', () => {
    expect(matchedTexts('the  white\n\t whale', 'white whale')).toEqual(['white\n\t whale']);
    expect(matchedTexts('the white whale', '  white   whale ')).toEqual(['white whale']);
  });

  it('PutsASpaceAtBlockBoundariesSoParagraphsDoNotRunTogether', () => {
    const text = 'the end.Start again';
    expect(matchedTexts(text, 'end.start', undefined, [8])).toEqual([]);
    expect(matchedTexts(text, 'end. start', undefined, [8])).toEqual(['end.Start']);
  });

  it('FindsNonOverlappingMatchesUpToALimit', () => {
    const folder = new TextFolder();
    expect(findFoldedMatches(folder.fold('aaaa'), 'aa')).toEqual([
      { start: 0, end: 2 },
      { start: 2, end: 4 },
    ]);
    expect(findFoldedMatches(folder.fold('ab ab ab'), 'ab', 2)).toHaveLength(2);
    expect(findFoldedMatches(folder.fold('ab'), '')).toEqual([]);
  });

  it('MapsMatchesBackOverCharactersOutsideTheBasicPlane', () => {
    const text = '\u{1d400}BC and abc';
    expect(matchedTexts(text, 'abc')).toEqual(['\u{1d400}BC', 'abc']);
  });

  it('RefusesAnUnknownLocaleQuietly', () => {
    expect(matchedTexts('Whale', 'whale', 'not a locale!')).toEqual(['Whale']);
  });
});

describe('SectionText', () => {
  it('FindsBlockBoundariesWhereParagraphsTouch', () => {
    const body = xhtmlBody('<p>The end.</p><p>Start <em>again</em>.<br/>Next</p>');
    const index = new TextIndex(body);
    expect(index.text).toBe('The end.Start again.Next');
    expect(blockBoundaries(body)).toEqual([8, 20, 24]);
  });

  it('MatchesTextSplitByInlineElementsButNotByBlocks', () => {
    const body = xhtmlBody('<p>a <span>wh</span><b>a</b>le</p><p>wh</p><p>ale</p>');
    const index = new TextIndex(body);
    const folder = new TextFolder();
    const matches = findFoldedMatches(folder.fold(index.text, blockBoundaries(body)), folder.foldQuery('whale'));
    expect(matches.map((span) => index.text.slice(span.start, span.end))).toEqual(['whale']);
  });

  it('ExcerptsCutAtWordsWithEllipses', () => {
    const text = `${'lorem ipsum '.repeat(10)}the white whale ${'dolor sit amet '.repeat(10)}`;
    const start = text.indexOf('white');
    const excerpt = excerptAround(text, start, start + 'white whale'.length);
    expect(excerpt.startsWith('…')).toBe(true);
    expect(excerpt.endsWith('…')).toBe(true);
    expect(excerpt).toContain('the white whale dolor');
    expect(excerpt).not.toMatch(/…(orem|psum|rem|sum) /);
    expect(excerpt).toMatch(/…(lorem|ipsum) /);
  });

  it('ExcerptsAShortTextWhole', () => {
    expect(excerptAround('The end.Start', 4, 7, [8])).toBe('The end. Start');
  });
});

describe('Anchoring', () => {
  const text = 'Call me Ishmael. Some years ago, never mind how long precisely, having little money in my purse.';

  it('PlacesAQuoteWhoseContextAgrees', () => {
    const start = text.indexOf('never mind');
    expect(anchorQuote(text, { exact: 'never mind', prefix: 'Some years ago, ', suffix: ' how long' })).toEqual({
      kind: 'placed',
      start,
      end: start + 'never mind'.length,
    });
  });

  it('ComparesWhiteSpaceLoosely', () => {
    const spaced = 'Call me\n   Ishmael.';
    expect(anchorQuote(spaced, { exact: 'me Ishmael', prefix: 'Call' })).toEqual({ kind: 'placed', start: 5, end: 18 });
    expect(matchCollapsedAt(spaced, 5, 'me Ishmael')).toBe(18);
    expect(matchCollapsedAt(spaced, 5, 'me Ish male')).toBeUndefined();
  });

  it('ChoosesTheOccurrenceWhoseContextAgrees', () => {
    const repeated = 'the whale rose. Then the whale sank. At last the whale died.';
    const decision = anchorQuote(repeated, { exact: 'the whale', prefix: 'Then ', suffix: ' sank' });
    expect(decision).toEqual({ kind: 'placed', start: repeated.indexOf('the whale sank'), end: repeated.indexOf(' sank') });
  });

  it('RefusesAShortQuoteWhoseContextChanged', () => {
    // The highlighted "the whale" was edited away; another "the whale" with other words around it
    // must not take the highlight.
    const edited = 'the whale rose. Then the shark sank. At last a storm came.';
    expect(anchorQuote(edited, { exact: 'the whale', prefix: 'Then ', suffix: ' sank' })).toEqual({
      kind: 'unresolved',
      reason: 'context-changed',
    });
  });

  it('RefusesAQuoteThatIsGone', () => {
    expect(anchorQuote(text, { exact: 'white whale', prefix: 'the ' })).toEqual({ kind: 'unresolved', reason: 'not-found' });
    expect(anchorQuote(text, { exact: '   ' })).toEqual({ kind: 'unresolved', reason: 'empty-quote' });
  });

  it('PlacesALongUniqueQuoteEvenWhenItsContextChanged', () => {
    const edited = `Preface added. ${text.slice(17)}`;
    const exact = 'Some years ago, never mind how long precisely';
    const decision = anchorQuote(edited, { exact, prefix: 'Call me Ishmael. ', suffix: ', having' });
    expect(decision).toEqual({ kind: 'placed', start: edited.indexOf(exact), end: edited.indexOf(exact) + exact.length });
    expect(anchorQuote(edited, { exact, prefix: 'Call me Ishmael. ', suffix: ' nothing alike' })).toMatchObject({ kind: 'placed' });
  });

  it('KeepsAHighlightWhenOnlyOneSideOfItsContextChanged', () => {
    const edited = 'Then the whale sank. And then the whale sank deeper.';
    const decision = anchorQuote(edited, { exact: 'the whale', prefix: 'And then ', suffix: ' swam' });
    expect(decision).toEqual({ kind: 'placed', start: edited.indexOf('the whale sank deeper'), end: edited.indexOf(' sank deeper') });
  });

  it('BreaksATieByTheStoredPositionOrRefuses', () => {
    const refrain = 'O Captain! my Captain! rise up. O Captain! my Captain! rise up.';
    const quote = { exact: 'my Captain', prefix: 'O Captain! ', suffix: '! rise up' };
    expect(anchorQuote(refrain, quote)).toEqual({ kind: 'unresolved', reason: 'ambiguous' });
    const second = refrain.lastIndexOf('my Captain');
    expect(anchorQuote(refrain, quote, second - 3)).toEqual({ kind: 'placed', start: second, end: second + 'my Captain'.length });
  });

  it('ScoresEveryCandidateByItsContext', () => {
    const { candidates, contextLength } = anchorCandidates('ab X cd ab X ce', { exact: 'X', prefix: 'ab', suffix: 'cd' });
    expect(contextLength).toBe(4);
    expect(candidates.map((candidate) => candidate.agreement)).toEqual([4, 3]);
  });
});
