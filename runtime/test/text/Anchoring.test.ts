import { describe, expect, it } from 'vitest';
import { anchorCandidates, anchorQuote, matchCollapsedAt } from '../../src/text/Anchoring';

describe('Anchoring', () => {
  const text = 'Call me Ishmael. Some years ago, never mind how long precisely, having little money in my purse.';

  const refrain = 'O Captain! my Captain! rise up. O Captain! my Captain! rise up.';
  const captain = { exact: 'my Captain', prefix: 'O Captain! ', suffix: '! rise up' };
  const edited = `Preface added. ${text.slice(17)}`;
  const longQuote = 'Some years ago, never mind how long precisely';
  // [name, text, quote, where it is placed (the first place of `at`, or `start`) or why it is not,
  // stored position]
  it.each<[string, string, Parameters<typeof anchorQuote>[1], { at: string } | { start: number } | { reason: string }, number?]>([
    ['PlacesAQuoteWhoseContextAgrees', text, { exact: 'never mind', prefix: 'Some years ago, ', suffix: ' how long' }, { at: 'never mind how' }],
    ['ComparesWhiteSpaceLoosely', 'Call me\n   Ishmael.', { exact: 'me Ishmael', prefix: 'Call' }, { at: 'me\n' }],
    [
      'ChoosesTheOccurrenceWhoseContextAgrees',
      'the whale rose. Then the whale sank. At last the whale died.',
      { exact: 'the whale', prefix: 'Then ', suffix: ' sank' },
      { at: 'the whale sank' },
    ],
    // The highlighted "the whale" was edited away; another "the whale" with other words around it
    // must not take the highlight.
    [
      'RefusesAShortQuoteWhoseContextChanged',
      'the whale rose. Then the shark sank. At last a storm came.',
      { exact: 'the whale', prefix: 'Then ', suffix: ' sank' },
      { reason: 'context-changed' },
    ],
    ['RefusesAQuoteThatIsGone', text, { exact: 'white whale', prefix: 'the ' }, { reason: 'not-found' }],
    ['RefusesAnEmptyQuote', text, { exact: '   ' }, { reason: 'empty-quote' }],
    ['PlacesALongUniqueQuoteEvenWhenItsContextChanged', edited, { exact: longQuote, prefix: 'Call me Ishmael. ', suffix: ', having' }, { at: longQuote }],
    ['PlacesALongUniqueQuoteWhoseContextIsAllOther', edited, { exact: longQuote, prefix: 'Call me Ishmael. ', suffix: ' nothing alike' }, { at: longQuote }],
    [
      'KeepsAHighlightWhenOnlyOneSideOfItsContextChanged',
      'Then the whale sank. And then the whale sank deeper.',
      { exact: 'the whale', prefix: 'And then ', suffix: ' swam' },
      { at: 'the whale sank deeper' },
    ],
    ['RefusesATieWithoutAStoredPosition', refrain, captain, { reason: 'ambiguous' }],
    ['BreaksATieByTheStoredPosition', refrain, captain, { start: refrain.lastIndexOf('my Captain') }, refrain.lastIndexOf('my Captain') - 3],
  ])('%s', (_name, source, quote, expected, position) => {
    const decision = anchorQuote(source, quote, position);
    if ('reason' in expected) {
      expect(decision).toEqual({ kind: 'unresolved', reason: expected.reason });
      return;
    }
    const start = 'start' in expected ? expected.start : source.indexOf(expected.at);
    expect(decision).toMatchObject({ kind: 'placed', start });
    if (decision.kind === 'placed') expect(matchCollapsedAt(source, decision.start, quote.exact)).toBe(decision.end);
  });

  it('MatchesCollapsedWhiteSpaceOnly', () => {
    expect(matchCollapsedAt('Call me\n   Ishmael.', 5, 'me Ishmael')).toBe(18);
    expect(matchCollapsedAt('Call me\n   Ishmael.', 5, 'me Ish male')).toBeUndefined();
  });

  it('ScoresEveryCandidateByItsContext', () => {
    const { candidates, contextLength } = anchorCandidates('ab X cd ab X ce', { exact: 'X', prefix: 'ab', suffix: 'cd' });
    expect(contextLength).toBe(4);
    expect(candidates.map((candidate) => candidate.agreement)).toEqual([4, 3]);
  });
});
