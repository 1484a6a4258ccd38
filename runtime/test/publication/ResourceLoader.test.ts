import { describe, expect, it } from 'vitest';
import { TextCache } from '../../src/publication/ResourceLoader';

// A loader over fixed texts that counts its reads; a read waits until the test releases it when
// `held` is set.
function countingLoader(texts: Record<string, string>, held = false) {
  const reads: string[] = [];
  const waiting: (() => void)[] = [];
  const load = (url: string): Promise<string> => {
    reads.push(url);
    const text = texts[url];
    const answer = (): Promise<string> => (text === undefined ? Promise.reject(new Error(`no ${url}`)) : Promise.resolve(text));
    if (!held) return answer();
    return new Promise<void>((resolve) => waiting.push(resolve)).then(answer);
  };
  const releaseAll = (): void => {
    for (const release of waiting.splice(0)) release();
  };
  return { reads, load, releaseAll };
}

describe('TextCache', () => {
  it('ReadsEachTextOnceAndAnswersLaterRequestsFromTheCache', async () => {
    const loader = countingLoader({ a: 'alpha', b: 'beta' });
    const cache = new TextCache(loader.load);
    expect(await cache.load('a')).toBe('alpha');
    expect(await cache.load('b')).toBe('beta');
    expect(await cache.load('a')).toBe('alpha');
    expect(loader.reads).toEqual(['a', 'b']);
    expect(cache.has('a')).toBe(true);
  });

  it('SharesAReadUnderWayWithEveryoneWhoAsksMeanwhile', async () => {
    const loader = countingLoader({ a: 'alpha' }, true);
    const cache = new TextCache(loader.load);
    const first = cache.load('a');
    const second = cache.load('a');
    expect(cache.has('a')).toBe(false);
    loader.releaseAll();
    expect(await Promise.all([first, second])).toEqual(['alpha', 'alpha']);
    expect(loader.reads).toEqual(['a']);
    expect(cache.has('a')).toBe(true);
  });

  it('LetsTheLeastRecentlyUsedTextsGoOnceTheBudgetIsPassed', async () => {
    // Each text is 4 units, 8 bytes; the budget holds two.
    const loader = countingLoader({ a: 'aaaa', b: 'bbbb', c: 'cccc' });
    const cache = new TextCache(loader.load, 16);
    await cache.load('a');
    await cache.load('b');
    await cache.load('a');
    await cache.load('c');
    expect(cache.has('a')).toBe(true);
    expect(cache.has('b')).toBe(false);
    expect(cache.has('c')).toBe(true);
    expect(cache.bytes).toBe(16);
    await cache.load('b');
    expect(loader.reads).toEqual(['a', 'b', 'c', 'b']);
  });

  it('KeepsNoTextLargerThanTheWholeBudget', async () => {
    const loader = countingLoader({ small: 'ab', large: 'x'.repeat(100) });
    const cache = new TextCache(loader.load, 16);
    await cache.load('small');
    expect(await cache.load('large')).toHaveLength(100);
    expect(cache.has('large')).toBe(false);
    expect(cache.has('small')).toBe(true);
  });

  it('KeepsNoFailedReadSoTheNextRequestTriesAgain', async () => {
    const texts: Record<string, string> = {};
    const loader = countingLoader(texts);
    const cache = new TextCache(loader.load);
    await expect(cache.load('a')).rejects.toThrow('no a');
    texts.a = 'alpha';
    expect(await cache.load('a')).toBe('alpha');
    expect(loader.reads).toEqual(['a', 'a']);
  });

  it('ForgetsEverythingOnClearAndDoesNotKeepReadsStartedBefore', async () => {
    const loader = countingLoader({ a: 'alpha', b: 'beta' }, true);
    const cache = new TextCache(loader.load);
    const early = cache.load('a');
    loader.releaseAll();
    await early;
    const underWay = cache.load('b');
    cache.clear();
    expect(cache.has('a')).toBe(false);
    loader.releaseAll();
    expect(await underWay).toBe('beta');
    expect(cache.has('b')).toBe(false);
    expect(cache.bytes).toBe(0);
  });
});
