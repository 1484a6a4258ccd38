import { describe, expect, it } from 'vitest';
import { findFoldedMatches, TextFolder } from '../../src/text/TextFolding';

function matchedTexts(original: string, query: string, language?: string, boundaries: number[] = []): string[] {
  const folder = new TextFolder(language);
  return findFoldedMatches(folder.fold(original, boundaries), folder.foldQuery(query)).map((span) => original.slice(span.start, span.end));
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
