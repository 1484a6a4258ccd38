import { describe, expect, it } from 'vitest';
import { SectionWeights } from '../../src/locator/Progression';
import type { SpineItem } from '../../src/publication/PackageDocument';
import { documentTextLength, weighSections } from '../../src/reader/SectionWeighing';

function spine(count: number): SpineItem[] {
  return Array.from({ length: count }, (_unused, index) => ({
    index,
    idref: `c${index}`,
    cfiStep: 2 * (index + 1),
    url: `tomekeeper://publication/id/OEBPS/c${index}.xhtml`,
    href: `c${index}.xhtml`,
    mediaType: 'application/xhtml+xml',
    linear: true,
    properties: [],
    layout: 'reflowable',
    skippedBefore: [],
  }));
}

describe('SectionWeighing', () => {
  it('WeighsEverySectionByItsLengthAndKeepsTheEstimateOfOneThatCannotBeRead', async () => {
    const items = spine(4);
    const weights = new SectionWeights(items.length);
    const lengths = [100, 300, undefined, 600];
    const length = (item: SpineItem): Promise<number> => {
      const known = lengths[item.index];
      return known === undefined ? Promise.reject(new Error('unreadable')) : Promise.resolve(known);
    };
    await weighSections(items, weights, { length }, () => true, { yieldToPage: () => Promise.resolve() });
    expect(items.map((item) => weights.weight(item.index))).toEqual([100, 300, 1000 / 3, 600]);
  });

  it('AsksForTheSectionsInGrowingReadsAheadOfTheOneWeighedAndStopsOnceTheBookIsClosed', async () => {
    const items = spine(12);
    const weighed: number[] = [];
    const reads: number[][] = [];
    let open = true;
    const length = (item: SpineItem): Promise<number> => {
      weighed.push(item.index);
      if (item.index === 9) open = false;
      return Promise.resolve(10);
    };
    const prefetch = (asked: readonly SpineItem[]): void => {
      reads.push(asked.map((item) => item.index));
    };
    // The weighing's promise ending is the sentinel: nothing after section 9 was weighed.
    const options = { firstRead: 1, sectionsPerRead: 4, readsAhead: 1, yieldToPage: () => Promise.resolve() };
    await weighSections(items, new SectionWeights(items.length), { length, prefetch }, () => open, options);
    expect(weighed).toEqual([0, 1, 2, 3, 4, 5, 6, 7, 8, 9]);
    expect(reads).toEqual([[0], [1, 2], [3, 4, 5, 6], [7, 8, 9, 10], [11]]);
  });

  it('GivesThePageATurnOnceItHasWorkedForAWhile', async () => {
    const items = spine(6);
    let clock = 0;
    const events: string[] = [];
    const length = (item: SpineItem): Promise<number> => {
      events.push(`weigh ${item.index}`);
      clock += 3;
      return Promise.resolve(1);
    };
    const yieldToPage = (): Promise<void> => {
      events.push('turn');
      return Promise.resolve();
    };
    await weighSections(items, new SectionWeights(items.length), { length }, () => true, { workMillisecondsPerTurn: 8, yieldToPage, now: () => clock });
    expect(events).toEqual(['weigh 0', 'weigh 1', 'weigh 2', 'turn', 'weigh 3', 'weigh 4', 'weigh 5', 'turn']);
  });

  it('MeasuresADocumentByTheTextOfItsBody', async () => {
    const cases: [string, number][] = [
      ['<html xmlns="http://www.w3.org/1999/xhtml"><head><title>Title</title></head><body><p>Four</p> <p>six</p></body></html>', 8],
      ['<svg xmlns="http://www.w3.org/2000/svg"><text>Seven!!</text></svg>', 7],
    ];
    for (const [markup, expected] of cases) {
      expect(await documentTextLength(() => Promise.resolve(markup), 'unused'), markup).toBe(expected);
    }
  });
});
