import { describe, expect, it } from 'vitest';
import { findFoldedMatches, TextFolder } from '../../src/text/TextFolding';

function matchedTexts(original: string, query: string, language?: string, boundaries: number[] = []): string[] {
  const folder = new TextFolder(language);
  return findFoldedMatches(folder.fold(original, boundaries), folder.foldQuery(query)).map((span) => original.slice(span.start, span.end));
}

describe('TextFolder', () => {
  // What a query finds in a text: [name, text, query, expected matches, book language, block boundaries].
  it.each<[string, string, string, string[], string?, number[]?]>([
    ['IgnoresCase', 'The Whale and the WHALE and the whale.', 'whale', ['Whale', 'WHALE', 'whale']],
    ['IgnoresDiacriticsInTheText', 'Un café, deux cafés, trois CAFE.', 'cafe', ['café', 'café', 'CAFE']],
    ['IgnoresDiacriticsInTheQuery', 'a naive idea', 'naïve', ['naive']],
    ['KeepsDecomposedMarksWithTheirLetter', 'cafe\u0301 noir', 'café', ['cafe\u0301']],
    ['FoldsLigatures', 'a diﬃcult ﬁnish', 'difficult', ['diﬃcult']],
    ['FoldsFullWidthLetters', 'ＡＢＣ letters', 'abc', ['ＡＢＣ']],
    ['FoldsSharpS', 'Die Straße ist lang', 'strasse', ['Straße']],
    ['FoldsFinalSigma', 'ΟΔΥΣΣΕΥΣ and Οδυσσευς', 'οδυσσευσ', ['ΟΔΥΣΣΕΥΣ', 'Οδυσσευς']],
    // In Turkish the capital of "i" is the dotted "İ".
    ['UsesTheBooksLocaleForTheDottedCapital', 'İstanbul', 'istanbul', ['İstanbul'], 'tr'],
    ['UsesTheBooksLocaleForTheDotlessCapital', 'ISPARTA', 'isparta', [], 'tr'],
    ['UsesEnglishCaseForAnEnglishBook', 'ISPARTA', 'isparta', ['ISPARTA'], 'en'],
    ['IgnoresSoftHyphensAndZeroWidthCharacters', 'a har\u00adpoon and a har\u200bpoon', 'harpoon', ['har\u00adpoon', 'har\u200bpoon']],
    ['TreatsTypographicApostrophesAsPlainOnes', 'I don\u2019t know', "don't", ['don\u2019t']],
    ['MatchesAcrossAnyRunOfWhiteSpaceInTheText', 'the  white\n\t whale', 'white whale', ['white\n\t whale']],
    ['MatchesAcrossAnyRunOfWhiteSpaceInTheQuery', 'the white whale', '  white   whale ', ['white whale']],
    ['PutsASpaceAtBlockBoundaries', 'the end.Start again', 'end. start', ['end.Start'], undefined, [8]],
    ['DoesNotRunParagraphsTogether', 'the end.Start again', 'end.start', [], undefined, [8]],
    ['MapsMatchesBackOverCharactersOutsideTheBasicPlane', '\u{1d400}BC and abc', 'abc', ['\u{1d400}BC', 'abc']],
    ['RefusesAnUnknownLocaleQuietly', 'Whale', 'whale', ['Whale'], 'not a locale!'],
  ])('%s', (_name, text, query, expected, language, boundaries) => {
    expect(matchedTexts(text, query, language, boundaries)).toEqual(expected);
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
});
