import { describe, expect, it } from 'vitest';
import { anchorCandidates, anchorQuote, matchCollapsedAt } from '../../src/text/Anchoring';

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
