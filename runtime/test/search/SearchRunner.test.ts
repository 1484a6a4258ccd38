import { describe, expect, it } from 'vitest';
import { resolveCfiRange } from '../../src/cfi/CfiDocument';
import { TextIndex } from '../../src/cfi/TextIndex';
import { parseSectionDocument, textRoot } from '../../src/publication/SectionDocuments';
import { SearchRunner, type PublicationSearchResult, type SearchSection, type SearchSource } from '../../src/search/SearchRunner';
import { xhtmlText } from '../support/sections';

interface Deferred {
  promise: Promise<void>;
  resolve(): void;
}

function deferred(): Deferred {
  let resolve: () => void = () => undefined;
  const promise = new Promise<void>((done) => {
    resolve = done;
  });
  return { promise, resolve };
}

// A book of sections given as body markup. A section may be held back until the test releases it,
// and a section given as an Error fails to load.
class FakeSource implements SearchSource {
  readonly loads: number[] = [];
  readonly gates = new Map<number, Deferred>();
  readonly documents = new Map<number, Document>();
  isLive?: (spineIndex: number) => boolean;
  markup?: (spineIndex: number) => Promise<{ text: string; mediaType: string }>;
  prefetch?: (spineIndices: readonly number[]) => void;

  constructor(private readonly bodies: (string | Error)[], private readonly bookLanguage?: string) {}

  sections(): SearchSection[] {
    return this.bodies.map((_body, spineIndex) => ({
      spineIndex,
      spineHref: `text/chapter${spineIndex}.xhtml`,
      cfiSpine: { spineCfiStep: 6, itemCfiStep: 2 * (spineIndex + 1), idref: `c${spineIndex}` },
    }));
  }

  async load(spineIndex: number): Promise<{ document: Document; index: TextIndex; root: Node }> {
    this.loads.push(spineIndex);
    await this.gates.get(spineIndex)?.promise;
    const body = this.bodies[spineIndex];
    if (body instanceof Error) throw body;
    const document = parseSectionDocument(xhtmlText(body as string), 'application/xhtml+xml');
    this.documents.set(spineIndex, document);
    return { document, index: new TextIndex(textRoot(document)), root: textRoot(document) };
  }

  totalProgression(spineIndex: number, sectionProgression: number): number {
    return (spineIndex + sectionProgression) / this.bodies.length;
  }

  language(): string | undefined {
    return this.bookLanguage;
  }
}

interface Batch {
  searchID: string;
  results: PublicationSearchResult[];
  isComplete: boolean;
}

function recorder(): { batches: Batch[]; emit: (searchID: string, results: PublicationSearchResult[], isComplete: boolean) => void } {
  const batches: Batch[] = [];
  return { batches, emit: (searchID, results, isComplete) => batches.push({ searchID, results, isComplete }) };
}

const immediate = (): Promise<void> => Promise.resolve();
const everySection = { batchSize: 1, batchIntervalMilliseconds: 0, sectionsAhead: 1, workMillisecondsPerTurn: 0, yieldToPage: immediate };

describe('SearchRunner', () => {
  it('SendsABatchPerSectionWithHitsAndALastCompleteBatch', async () => {
    const source = new FakeSource(['<p>The Whale.</p>', '<p>No hits here.</p>', '<p>whale and <em>WHA</em>LE</p>']);
    const { batches, emit } = recorder();
    await new SearchRunner(source, emit, everySection).start('S1', 'whale');
    expect(batches.map((batch) => [batch.searchID, batch.results.length, batch.isComplete])).toEqual([
      ['S1', 1, false],
      ['S1', 2, false],
      ['S1', 0, true],
    ]);
    const [first] = batches[0]?.results ?? [];
    expect(first).toMatchObject({
      id: '0:4-9',
      excerpt: 'The Whale.',
      locator: { spineHref: 'text/chapter0.xhtml', spineIndex: 0, excerpt: { exact: 'Whale', prefix: 'The ', suffix: '.' } },
    });
    expect(first?.locator.sectionProgression).toBeCloseTo(4 / 10);
    expect(first?.locator.totalProgression).toBeCloseTo(0.4 / 3);
  });

  it('GivesLocatorsWhoseCfiResolvesToTheMatch', async () => {
    const source = new FakeSource(['<p>a <span>wh</span>ale</p><div><p>Caf\u00e9 and cafe\u0301 and CAFE</p></div>']);
    const { batches, emit } = recorder();
    const runner = new SearchRunner(source, emit, everySection);
    await runner.start('S1', 'whale');
    await runner.start('S2', 'café');
    const document = source.documents.get(0) as Document;
    const resolved = batches.flatMap((batch) => batch.results).map((result) => resolveCfiRange(document, result.locator.cfi as string).toString());
    expect(resolved).toEqual(['whale', 'Caf\u00e9', 'cafe\u0301', 'CAFE']);
  });

  it('GivesTheSameIdsToTheSameMatchesEveryTime', async () => {
    const source = new FakeSource(['<p>whale whale</p>', '<p>a whale</p>']);
    const first = recorder();
    const second = recorder();
    await new SearchRunner(source, first.emit, everySection).start('S1', 'WHALE');
    await new SearchRunner(source, second.emit, everySection).start('S2', 'whale');
    const ids = (batches: Batch[]) => batches.flatMap((batch) => batch.results.map((result) => result.id));
    expect(ids(first.batches)).toEqual(['0:0-5', '0:6-11', '1:2-7']);
    expect(ids(second.batches)).toEqual(ids(first.batches));
  });

  it('GathersResultsIntoFewerBatchesWhenTheyComeQuickly', async () => {
    const source = new FakeSource(['<p>whale</p>', '<p>whale</p>', '<p>whale</p>', '<p>whale</p>']);
    const { batches, emit } = recorder();
    await new SearchRunner(source, emit, { batchSize: 3, batchIntervalMilliseconds: 60000, yieldToPage: immediate }).start('S', 'whale');
    expect(batches.map((batch) => [batch.results.length, batch.isComplete])).toEqual([
      [3, false],
      [1, true],
    ]);
  });

  it('CompletesAnEmptyQueryAtOnceWithNoResults', async () => {
    const source = new FakeSource(['<p>whale</p>']);
    const { batches, emit } = recorder();
    await new SearchRunner(source, emit, everySection).start('S', '   ');
    expect(batches).toEqual([{ searchID: 'S', results: [], isComplete: true }]);
    expect(source.loads).toEqual([]);
  });

  it('PassesOverASectionThatCannotBeRead', async () => {
    const source = new FakeSource([new Error('gone'), '<p>whale</p>']);
    const { batches, emit } = recorder();
    await new SearchRunner(source, emit, everySection).start('S', 'whale');
    expect(batches.flatMap((batch) => batch.results.map((result) => result.id))).toEqual(['1:0-5']);
    expect(batches[batches.length - 1]?.isComplete).toBe(true);
  });

  it('StopsAtTheResultLimitAndCompletes', async () => {
    const source = new FakeSource(['<p>a a a</p>', '<p>a a</p>', '<p>a</p>']);
    const { batches, emit } = recorder();
    await new SearchRunner(source, emit, { ...everySection, maximumResults: 4 }).start('S', 'a');
    const ids = batches.flatMap((batch) => batch.results.map((result) => result.id));
    expect(ids).toEqual(['0:0-1', '0:2-3', '0:4-5', '1:0-1']);
    expect(batches[batches.length - 1]?.isComplete).toBe(true);
  });

  it('StopsSendingWhenCancelledMidSearch', async () => {
    const source = new FakeSource(['<p>whale</p>', '<p>whale</p>', '<p>whale</p>', '<p>whale</p>']);
    const gate = deferred();
    source.gates.set(1, gate);
    const { batches, emit } = recorder();
    const runner = new SearchRunner(source, emit, everySection);
    const done = runner.start('S', 'whale');
    await new Promise((resolve) => setTimeout(resolve, 0));
    expect(batches).toHaveLength(1);
    runner.cancel('S');
    expect(runner.activeSearchID).toBeUndefined();
    gate.resolve();
    await done;
    expect(batches).toHaveLength(1);
    expect(batches.some((batch) => batch.isComplete)).toBe(false);
    // Section 2 was fetched ahead while section 1 was awaited; nothing after it was.
    expect(source.loads).toEqual([0, 1, 2]);
  });

  it('NeverSendsTheReadyBatchOfASearchCancelledWhileItYielded', async () => {
    const source = new FakeSource(['<p>whale</p>', '<p>whale</p>']);
    let release: () => void = () => undefined;
    const { batches, emit } = recorder();
    let turns = 0;
    const runner = new SearchRunner(source, emit, {
      batchSize: 1000,
      batchIntervalMilliseconds: 60000,
      workMillisecondsPerTurn: 0,
      // The first turn (before the work) passes; the second, after the first section, waits.
      yieldToPage: () => {
        turns += 1;
        return turns === 2 ? new Promise<void>((resolve) => (release = resolve)) : Promise.resolve();
      },
    });
    const done = runner.start('S', 'whale');
    await new Promise((resolve) => setTimeout(resolve, 0));
    expect(turns).toBe(2);
    runner.cancel('S');
    release();
    await done;
    expect(batches).toEqual([]);
  });

  it('FetchesSeveralSectionsAheadOfTheOneSearched', async () => {
    const source = new FakeSource(['<p>whale</p>', '<p>whale</p>', '<p>whale</p>', '<p>whale</p>', '<p>whale</p>', '<p>whale</p>']);
    const gate = deferred();
    source.gates.set(0, gate);
    const { batches, emit } = recorder();
    const done = new SearchRunner(source, emit, { ...everySection, sectionsAhead: 3 }).start('S', 'whale');
    await new Promise((resolve) => setTimeout(resolve, 0));
    expect(source.loads).toEqual([0, 1, 2, 3]);
    gate.resolve();
    await done;
    expect(source.loads).toEqual([0, 1, 2, 3, 4, 5]);
    // Fetched out of order or not, the results come in the book's order.
    expect(batches.flatMap((batch) => batch.results.map((result) => result.id))).toEqual(['0:0-5', '1:0-5', '2:0-5', '3:0-5', '4:0-5', '5:0-5']);
  });

  it('GivesThePageATurnOnceItHasWorkedForAWhile', async () => {
    const source = new FakeSource(['<p>whale</p>', '<p>whale</p>', '<p>whale</p>', '<p>whale</p>', '<p>whale</p>']);
    const { emit } = recorder();
    // Every reading of the clock moves it on by a millisecond.
    let clock = 0;
    let turns = 0;
    await new SearchRunner(source, emit, {
      batchSize: 1000,
      batchIntervalMilliseconds: 60000,
      workMillisecondsPerTurn: 5,
      now: () => (clock += 1),
      yieldToPage: () => {
        turns += 1;
        return Promise.resolve();
      },
    }).start('S', 'whale');
    // One turn before the work, then fewer than one per section.
    expect(turns).toBeGreaterThan(1);
    expect(turns).toBeLessThan(1 + source.sections().length);
  });

  it('CancelsTheRunningSearchWhenAnotherStarts', async () => {
    const source = new FakeSource(['<p>whale</p>', '<p>whale ship</p>']);
    const gate = deferred();
    source.gates.set(1, gate);
    const { batches, emit } = recorder();
    const runner = new SearchRunner(source, emit, everySection);
    const first = runner.start('S1', 'whale');
    await new Promise((resolve) => setTimeout(resolve, 0));
    source.gates.delete(1);
    const second = runner.start('S2', 'ship');
    gate.resolve();
    await Promise.all([first, second]);
    expect(batches.filter((batch) => batch.searchID === 'S1').every((batch) => !batch.isComplete)).toBe(true);
    expect(batches.filter((batch) => batch.searchID === 'S2').map((batch) => batch.results.map((result) => result.id))).toEqual([['1:6-10'], []]);
  });

  it('IgnoresTheCancellationOfAnotherSearch', async () => {
    const source = new FakeSource(['<p>whale</p>']);
    const { batches, emit } = recorder();
    const runner = new SearchRunner(source, emit, everySection);
    const done = runner.start('S', 'whale');
    runner.cancel('other');
    await done;
    expect(batches[batches.length - 1]).toMatchObject({ searchID: 'S', isComplete: true });
  });
  it('SearchesASectionKeptFromAnEarlierSearchWithoutLoadingItAgain', async () => {
    const source = new FakeSource(['<p>The whale.</p>', '<p>A <em>wha</em>le and a whale.</p>']);
    const { batches, emit } = recorder();
    const runner = new SearchRunner(source, emit, everySection);
    await runner.start('S1', 'whale');
    expect(source.loads).toEqual([0, 1]);
    await runner.start('S2', 'whale');
    expect(source.loads).toEqual([0, 1]);
    const results = (searchID: string) => batches.filter((batch) => batch.searchID === searchID).flatMap((batch) => batch.results);
    expect(results('S1')).toHaveLength(3);
    expect(results('S2')).toEqual(results('S1'));
  });

  it('LoadsALiveSectionForEverySearch', async () => {
    const source = new FakeSource(['<p>whale</p>', '<p>whale</p>']);
    source.isLive = (spineIndex: number) => spineIndex === 1;
    const { batches, emit } = recorder();
    const runner = new SearchRunner(source, emit, everySection);
    await runner.start('S1', 'whale');
    await runner.start('S2', 'whale');
    expect(source.loads).toEqual([0, 1, 1]);
    expect(batches.flatMap((batch) => batch.results)).toHaveLength(4);
  });

  it('PreparesFromMarkupWhatItCanAndLoadsTheRestWithTheSameResults', async () => {
    // Well-formed; not well-formed (read as HTML through its document); live in a frame.
    const bodies = ['<p id="w">The whale &amp; <em>wha</em>le.</p>', '<p>A whale<br>and more</p>', '<p>whale</p>'];
    const results = async (source: FakeSource): Promise<PublicationSearchResult[]> => {
      source.isLive = (spineIndex: number) => spineIndex === 2;
      const { batches, emit } = recorder();
      await new SearchRunner(source, emit, everySection).start('S', 'whale');
      return batches.flatMap((batch) => batch.results);
    };
    const throughDocuments = new FakeSource(bodies);
    const fromMarkup = new FakeSource(bodies);
    const markupRead: number[] = [];
    fromMarkup.markup = (spineIndex) => {
      markupRead.push(spineIndex);
      return Promise.resolve({ text: xhtmlText(bodies[spineIndex] as string), mediaType: 'application/xhtml+xml' });
    };
    const expected = await results(throughDocuments);
    expect(expected).toHaveLength(4);
    expect(await results(fromMarkup)).toEqual(expected);
    expect(markupRead).toEqual([0, 1]);
    expect(fromMarkup.loads).toEqual([1, 2]);
  });

  it('LoadsEverySectionAgainOnceItForgotThem', async () => {
    const source = new FakeSource(['<p>whale</p>', '<p>whale</p>']);
    const { emit } = recorder();
    const runner = new SearchRunner(source, emit, everySection);
    await runner.start('S1', 'whale');
    runner.forgetSections();
    await runner.start('S2', 'whale');
    expect(source.loads).toEqual([0, 1, 0, 1]);
  });

  it('PreparesEachSectionOnceForTheWeighingAndTheSearchThatRunTogether', async () => {
    const bodies = ['<p>whale one</p>', '<p>two</p>', '<p>whale three</p>', '<p>four whale</p>', '<p>five</p>'];
    const source = new FakeSource(bodies);
    const markupRead: number[] = [];
    const gate = deferred();
    source.markup = async (spineIndex) => {
      markupRead.push(spineIndex);
      await gate.promise;
      return { text: xhtmlText(bodies[spineIndex] as string), mediaType: 'application/xhtml+xml' };
    };
    const hints: number[][] = [];
    source.prefetch = (spineIndices) => hints.push([...spineIndices]);
    const { batches, emit } = recorder();
    const runner = new SearchRunner(source, emit, { ...everySection, sectionsAhead: 2, sectionsPerRead: 2 });
    const weighed = Promise.all(bodies.map((_body, spineIndex) => runner.preparedSection(spineIndex)));
    const searched = runner.start('S', 'whale');
    gate.resolve();
    const [lengths] = await Promise.all([weighed.then((sections) => sections.map((section) => section.text.length)), searched]);
    expect(lengths).toEqual(bodies.map((body) => body.length - '<p></p>'.length));
    expect(markupRead).toEqual([0, 1, 2, 3, 4]);
    expect(source.loads).toEqual([]);
    // Every section was being prepared for the weighing before the search began: nothing to hint.
    expect(hints).toEqual([]);
    expect(batches.flatMap((batch) => batch.results.map((result) => result.id))).toEqual(['0:0-5', '2:0-5', '3:5-10']);
  });

  it('HintsTheSectionsItWillReadInGrowingReadsAheadOfTheSearch', async () => {
    const bodies = ['<p>a</p>', '<p>b</p>', '<p>c</p>', '<p>d</p>', '<p>e</p>', '<p>f</p>', '<p>g</p>', '<p>h</p>', '<p>i</p>', '<p>j</p>'];
    const source = new FakeSource(bodies);
    source.markup = (spineIndex) => Promise.resolve({ text: xhtmlText(bodies[spineIndex] as string), mediaType: 'application/xhtml+xml' });
    source.isLive = (spineIndex) => spineIndex === 4;
    const hints: number[][] = [];
    const searched: number[] = [];
    source.prefetch = (spineIndices) => hints.push([...spineIndices]);
    const runner = new SearchRunner(source, recorder().emit, { ...everySection, sectionsAhead: 1, firstRead: 2, sectionsPerRead: 3 });
    await runner.preparedSection(1);
    const markup = source.markup;
    source.markup = (spineIndex) => {
      searched.push(spineIndex);
      // The hint for a section comes before the section is read.
      expect(hints.flat()).toContain(spineIndex);
      return markup(spineIndex);
    };
    await runner.start('S', 'a');
    // Section 1 is kept from before and 4 is live: neither is asked for.
    expect(hints).toEqual([[0], [2, 3], [5, 6, 7], [8, 9]]);
    expect(searched).toEqual([0, 2, 3, 5, 6, 7, 8, 9]);
  });
});
