import { describe, expect, it } from 'vitest';
import { excerptAt, findExcerpt } from '../../src/locator/Excerpt';

describe('Excerpt', () => {
  const text = 'It was the best of times,\n   it was the worst of times, it was the age of wisdom, it was the age of foolishness, it was the epoch of belief.';

  it('TakesTheTextAtAPositionWithItsContext', () => {
    const position = text.indexOf('worst');
    const excerpt = excerptAt(text, position);
    expect(excerpt?.exact.startsWith('worst of times, it was the age')).toBe(true);
    expect(excerpt?.prefix?.endsWith('best of times, it was the ')).toBe(true);
    expect(excerpt?.suffix?.length).toBeGreaterThan(0);
  });

  it('GivesNoExcerptForBlankText', () => {
    expect(excerptAt('   \n  ', 0)).toBeUndefined();
  });

  it('FindsAnExcerptAgainAcrossDifferentWhiteSpace', () => {
    const position = text.indexOf('worst');
    const excerpt = excerptAt(text, position);
    if (excerpt === undefined) throw new Error('no excerpt');
    expect(findExcerpt(text, excerpt)).toBe(position);
    const reflowed = text.replace(/\s+/g, '  \n');
    expect(findExcerpt(reflowed, excerpt)).toBe(reflowed.indexOf('worst'));
  });

  it('PrefersTheMatchWhoseContextAgrees', () => {
    const repeated = 'alpha it was the age beta. gamma it was the age delta.';
    expect(findExcerpt(repeated, { exact: 'it was the age', prefix: 'gamma ', suffix: ' delta' })).toBe(repeated.lastIndexOf('it was'));
    expect(findExcerpt(repeated, { exact: 'it was the age', prefix: 'alpha ' })).toBe(repeated.indexOf('it was'));
  });

  it('PrefersTheMatchNearestToTheExpectedPosition', () => {
    const repeated = 'x la y la z la w';
    expect(findExcerpt(repeated, { exact: 'la' }, 12)).toBe(12);
    expect(findExcerpt(repeated, { exact: 'la' }, 0)).toBe(2);
  });

  it('FindsNothingForMissingText', () => {
    expect(findExcerpt(text, { exact: 'not in the book' })).toBeUndefined();
  });
});
