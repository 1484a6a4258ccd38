import { describe, expect, it } from 'vitest';
import { TextCache } from '../../src/publication/ResourceLoader';
import { parseSectionBatch, SectionBatchReader, SectionBatchRefused, sectionBatchURL, SectionTexts, type SectionBatchLoader } from '../../src/search/SectionBatchReading';

const root = 'tomekeeper://publication/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/';
const url = (name: string): string => `${root}OEBPS/${name}.xhtml`;
const text = (address: string): string => `text of ${address.slice(root.length)}`;

// A route that serves any path's text, refusing as `refuse` says, and records every batch asked.
function route(refuse: (paths: readonly string[]) => number | 'malformed' | undefined = () => undefined) {
  const batches: string[][] = [];
  const singles: string[] = [];
  const loadBatch: SectionBatchLoader = (rootURL, paths) => {
    batches.push([...paths]);
    const refusal = refuse(paths);
    if (refusal === 'malformed') return Promise.resolve(paths.slice(1).map((path) => text(rootURL + path)));
    if (refusal !== undefined) return Promise.reject(new SectionBatchRefused(refusal, 'refused'));
    return Promise.resolve(paths.map((path) => text(rootURL + path)));
  };
  const loadText = (address: string): Promise<string> => {
    singles.push(address.slice(root.length));
    return address.includes('broken') ? Promise.reject(new Error('unreadable')) : Promise.resolve(text(address));
  };
  return { batches, singles, loadBatch, loadText };
}

describe('SectionBatchReader', () => {
  const names = ['a', 'b', 'c', 'd', 'e'];
  const cases: {
    behaviour: string;
    refuse?: (paths: readonly string[]) => number | 'malformed' | undefined;
    batches: string[][];
    singles: string[];
  }[] = [
    {
      behaviour: 'ReadsTheSectionsInBatchesOfTheMaximumAndNothingAlone',
      batches: [['OEBPS/a.xhtml', 'OEBPS/b.xhtml'], ['OEBPS/c.xhtml', 'OEBPS/d.xhtml'], ['OEBPS/e.xhtml']],
      singles: [],
    },
    {
      behaviour: 'HalvesABatchThatIsTooHeavyTogether',
      refuse: (paths) => (paths.length > 1 && paths.includes('OEBPS/c.xhtml') ? 413 : undefined),
      batches: [['OEBPS/a.xhtml', 'OEBPS/b.xhtml'], ['OEBPS/c.xhtml', 'OEBPS/d.xhtml'], ['OEBPS/e.xhtml'], ['OEBPS/c.xhtml'], ['OEBPS/d.xhtml']],
      singles: [],
    },
    {
      behaviour: 'ReadsTheSectionsOfARefusedBatchOneByOne',
      refuse: (paths) => (paths.includes('OEBPS/a.xhtml') ? 403 : undefined),
      batches: [['OEBPS/a.xhtml', 'OEBPS/b.xhtml'], ['OEBPS/c.xhtml', 'OEBPS/d.xhtml'], ['OEBPS/e.xhtml']],
      singles: ['OEBPS/a.xhtml', 'OEBPS/b.xhtml'],
    },
    {
      behaviour: 'ReadsTheSectionsOfAnAnswerThatIsNoBatchOneByOne',
      refuse: (paths) => (paths.includes('OEBPS/e.xhtml') ? 'malformed' : undefined),
      batches: [['OEBPS/a.xhtml', 'OEBPS/b.xhtml'], ['OEBPS/c.xhtml', 'OEBPS/d.xhtml'], ['OEBPS/e.xhtml']],
      singles: ['OEBPS/e.xhtml'],
    },
  ];
  for (const testCase of cases) {
    it(testCase.behaviour, async () => {
      const fake = route(testCase.refuse);
      const reader = new SectionBatchReader(
        (rootURL, paths) =>
          fake.loadBatch(rootURL, paths).then((texts) => {
            if (texts.length !== paths.length) throw new Error('malformed');
            return texts;
          }),
        fake.loadText,
        { maximumItems: 2 },
      );
      const cache = new TextCache(reader.read);
      reader.prefetch(root, names.map(url), cache);
      const texts = await Promise.all(names.map((name) => cache.load(url(name))));
      expect(texts).toEqual(names.map((name) => text(url(name))));
      expect(fake.batches).toEqual(testCase.batches);
      expect(fake.singles).toEqual(testCase.singles);
    });
  }

  it('AsksForNoSectionTheCacheHoldsOrABatchAskedForAndNoneOutsideTheRoot', async () => {
    const fake = route();
    const reader = new SectionBatchReader(fake.loadBatch, fake.loadText, { maximumItems: 8 });
    const cache = new TextCache(reader.read);
    await cache.load(url('a'));
    reader.prefetch(root, [url('a'), url('b'), 'tomekeeper://publication/other/c.xhtml', root], cache);
    reader.prefetch(root, [url('b'), url('c')], cache);
    expect(await cache.load(url('c'))).toBe(text(url('c')));
    expect(fake.batches).toEqual([['OEBPS/b.xhtml'], ['OEBPS/c.xhtml']]);
    expect(fake.singles).toEqual(['OEBPS/a.xhtml']);
  });

  it('LetsASectionThatCannotBeReadFailAloneAndAsksForItAgainAfterAClear', async () => {
    const fake = route(() => 403);
    const texts = new SectionTexts(fake.loadText, fake.loadBatch);
    texts.prefetch(root, [url('broken'), url('b')]);
    await expect(texts.load(url('broken'))).rejects.toThrow('unreadable');
    expect(await texts.load(url('b'))).toBe(text(url('b')));
    texts.clear();
    texts.prefetch(root, [url('b')]);
    expect(fake.batches).toEqual([['OEBPS/broken.xhtml', 'OEBPS/b.xhtml'], ['OEBPS/b.xhtml']]);
  });
});

describe('SectionBatchRoute', () => {
  it('NamesEachPathAsOneEncodedSectionParameter', () => {
    expect(sectionBatchURL(root, ['OEBPS/a b.xhtml', 'OEBPS/c%20d.xhtml', 'x&y=z'])).toBe(
      `${root}?section=OEBPS%2Fa%20b.xhtml&section=OEBPS%2Fc%2520d.xhtml&section=x%26y%3Dz`,
    );
  });

  it('TakesOnlyAnArrayOfAsManyTextsAsAskedFor', () => {
    const cases: [string, number, string[] | undefined][] = [
      ['["a","b"]', 2, ['a', 'b']],
      ['[]', 0, []],
      ['["a"]', 2, undefined],
      ['["a",1]', 2, undefined],
      ['{"0":"a"}', 1, undefined],
      ['not json', 1, undefined],
    ];
    for (const [answer, count, expected] of cases) {
      if (expected === undefined) expect(() => parseSectionBatch(answer, count), answer).toThrow();
      else expect(parseSectionBatch(answer, count), answer).toEqual(expected);
    }
  });
});
