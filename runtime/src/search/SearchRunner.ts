// Full-text search of the book. A search runs section by section in the background; its results go
// up in batches, each result with an id that stays the same for the same match, a locator that
// `goTo` resolves to the match (a range CFI, with the matched words as its excerpt) and an excerpt
// for the results list. A cancelled search sends nothing more, not even a batch that was ready.
// Each section is read and prepared once and kept for the searches that follow (see
// PreparedSection), so a second search of a book costs little more than sending its results.
import type { Locator } from '../bridge/records';
import type { CfiSpinePosition } from '../cfi/CfiDocument';
import type { TextIndex } from '../cfi/TextIndex';
import { clampUnit } from '../locator/Progression';
import { excerptAround } from '../text/SectionText';
import { findFoldedMatches, TextFolder } from '../text/TextFolding';
import { prepareSectionFromMarkup } from './MarkupPreparation';
import { cfiForSpan, prepareSection, PreparedSections, type PreparedSection } from './PreparedSection';
import { makeTaskYield } from './TaskYield';

export interface PublicationSearchResult {
  id: string;
  locator: Locator;
  excerpt: string;
}

export interface SearchSection {
  spineIndex: number;
  spineHref: string;
  cfiSpine: CfiSpinePosition;
}

// Where the search reads the book. Tests give their own.
export interface SearchSource {
  sections(): SearchSection[];
  // The section's document and the TextIndex of its text root.
  load(spineIndex: number): Promise<{ document: Document; index: TextIndex; root: Node }>;
  // Whether the section is loaded in a frame now. Such a section is searched in its live document
  // every time; others are prepared once and kept for the searches that follow.
  isLive?(spineIndex: number): boolean;
  // The section's source and its media type, from which a section that is not live is prepared
  // without a document when it can be (see MarkupPreparation); load() serves the rest. A source
  // without it has every section read through load().
  markup?(spineIndex: number): Promise<{ text: string; mediaType: string }>;
  // Starts reading the sources of these sections together, ahead of markup(); a hint only.
  prefetch?(spineIndices: readonly number[]): void;
  totalProgression(spineIndex: number, sectionProgression: number): number;
  language(): string | undefined;
}

export interface SearchOptions {
  // A batch goes up once this many results wait, or once this much time passed since the last.
  batchSize?: number;
  batchIntervalMilliseconds?: number;
  // The search stops (and completes) after this many results.
  maximumResults?: number;
  // What the prepared sections kept between searches may take in memory.
  preparedSectionBytes?: number;
  // How many sections are fetched ahead of the one being searched. A fetch mostly waits on the
  // resource scheme, not on this page, so several in flight hide one another's latency.
  sectionsAhead?: number;
  // How many sections' sources are asked for together (see SearchSource.prefetch): firstRead in
  // the first hint, twice as many in each next, up to sectionsPerRead, so that the search can
  // begin while the later sections are still on their way.
  sectionsPerRead?: number;
  firstRead?: number;
  // The search gives the page a turn once it has worked this long since the page last had one, so
  // that a page turn asked for meanwhile waits no longer than that; 0 gives one after every section.
  workMillisecondsPerTurn?: number;
  yieldToPage?: () => Promise<void>;
  now?: () => number;
}

export type SearchResultsEmitter = (searchID: string, results: PublicationSearchResult[], isComplete: boolean) => void;

const contextLength = 32;

// The results of one query in one prepared section, in text order.
export function searchSection(
  section: SearchSection,
  prepared: PreparedSection,
  foldedQuery: string,
  totalProgression: (sectionProgression: number) => number,
  limit = Number.POSITIVE_INFINITY,
): PublicationSearchResult[] {
  const { text, boundaries } = prepared;
  const matches = findFoldedMatches(prepared.folded, foldedQuery, limit);
  const results: PublicationSearchResult[] = [];
  for (const match of matches) {
    const cfi = cfiForSpan(prepared, match.start, match.end, section.cfiSpine);
    if (cfi === undefined) continue;
    const sectionProgression = text.length === 0 ? 0 : clampUnit(match.start / text.length);
    const prefix = text.slice(Math.max(0, match.start - contextLength), match.start);
    const suffix = text.slice(match.end, match.end + contextLength);
    const locator: Locator = {
      spineHref: section.spineHref,
      spineIndex: section.spineIndex,
      cfi,
      sectionProgression,
      totalProgression: totalProgression(sectionProgression),
      excerpt: {
        exact: text.slice(match.start, match.end),
        ...(prefix.length > 0 ? { prefix } : {}),
        ...(suffix.length > 0 ? { suffix } : {}),
      },
    };
    results.push({
      id: `${section.spineIndex}:${match.start}-${match.end}`,
      locator,
      excerpt: excerptAround(text, match.start, match.end, boundaries),
    });
  }
  return results;
}

interface RunningSearch {
  searchID: string;
  cancelled: boolean;
}

export class SearchRunner {
  private readonly source: SearchSource;
  private readonly emit: SearchResultsEmitter;
  private readonly batchSize: number;
  private readonly batchIntervalMilliseconds: number;
  private readonly maximumResults: number;
  private readonly sectionsAhead: number;
  private readonly sectionsPerRead: number;
  private readonly firstRead: number;
  private readonly workMillisecondsPerTurn: number;
  private readonly yieldToPage: () => Promise<void>;
  private readonly now: () => number;
  private readonly prepared: PreparedSections;
  // Sections being prepared from their source, shared by whoever asks meanwhile.
  private readonly preparing = new Map<number, { epoch: number; language: string | undefined; load: PendingLoad }>();
  private readonly folders = new Map<string | undefined, TextFolder>();
  private running: RunningSearch | undefined;

  constructor(source: SearchSource, emit: SearchResultsEmitter, options: SearchOptions = {}) {
    this.source = source;
    this.emit = emit;
    this.batchSize = options.batchSize ?? 200;
    this.batchIntervalMilliseconds = options.batchIntervalMilliseconds ?? 150;
    this.maximumResults = options.maximumResults ?? 10000;
    this.sectionsAhead = Math.max(1, options.sectionsAhead ?? 8);
    this.sectionsPerRead = Math.max(1, options.sectionsPerRead ?? 64);
    this.firstRead = Math.min(this.sectionsPerRead, Math.max(1, options.firstRead ?? 8));
    this.workMillisecondsPerTurn = options.workMillisecondsPerTurn ?? 8;
    this.yieldToPage = options.yieldToPage ?? makeTaskYield();
    this.now = options.now ?? (() => Date.now());
    this.prepared = new PreparedSections(options.preparedSectionBytes);
  }

  // Starts a search and returns at once; the results follow by the emitter. A search already
  // running is cancelled: one search runs at a time. The returned promise settles when the work
  // ends (for tests and the benchmark; the bridge does not wait for it).
  start(searchID: string, query: string): Promise<void> {
    this.cancelAll();
    const search: RunningSearch = { searchID, cancelled: false };
    this.running = search;
    return this.run(search, query).finally(() => {
      if (this.running === search) this.running = undefined;
    });
  }

  cancel(searchID: string): void {
    if (this.running?.searchID === searchID) this.cancelAll();
  }

  cancelAll(): void {
    if (this.running !== undefined) this.running.cancelled = true;
    this.running = undefined;
  }

  get activeSearchID(): string | undefined {
    return this.running?.searchID;
  }

  // Lets go of the sections kept from earlier searches; for when another publication opens.
  forgetSections(): void {
    this.prepared.forget();
    this.preparing.clear();
  }

  // The section prepared from its source for the book's language, as a search would find it:
  // kept from before, being prepared, or prepared now (and kept). What the weighing of the book
  // reads, so that a section is read and prepared once for both.
  async preparedSection(spineIndex: number): Promise<PreparedSection> {
    const language = this.source.language();
    const loaded = await this.prepare(spineIndex, this.folderFor(language), language, 'kept').result;
    if (!loaded.ok) throw loaded.error;
    return loaded.value;
  }

  // Starts reading the sources of sections[from, to) that are neither kept, being prepared nor
  // live, as one hint to the source.
  private prefetch(sections: readonly SearchSection[], from: number, to: number): void {
    if (this.source.prefetch === undefined) return;
    const wanted: number[] = [];
    for (let position = from; position < Math.min(to, sections.length); position += 1) {
      const spineIndex = (sections[position] as SearchSection).spineIndex;
      if (!this.prepared.has(spineIndex) && !this.preparing.has(spineIndex) && this.source.isLive?.(spineIndex) !== true) wanted.push(spineIndex);
    }
    if (wanted.length > 0) this.source.prefetch(wanted);
  }

  private folderFor(language: string | undefined): TextFolder {
    let folder = this.folders.get(language);
    if (folder === undefined) {
      folder = new TextFolder(language);
      this.folders.set(language, folder);
    }
    return folder;
  }

  // A section ready for searching: the one kept from an earlier search or being prepared, or else
  // loaded and prepared (and kept, unless it is live in a frame and `use` is 'live').
  private prepare(spineIndex: number, folder: TextFolder, language: string | undefined, use: 'live' | 'kept' = 'live'): PendingLoad {
    const live = use === 'live' && (this.source.isLive?.(spineIndex) ?? false);
    const epoch = this.prepared.epoch;
    if (!live) {
      const kept = this.prepared.get(spineIndex);
      if (kept !== undefined && kept.language === language) return { settled: true, result: Promise.resolve({ ok: true, value: kept }) };
      const underWay = this.preparing.get(spineIndex);
      if (underWay !== undefined && underWay.epoch === epoch && underWay.language === language) return underWay.load;
    }
    const throughDocument = (): Promise<PreparedSection> =>
      this.source.load(spineIndex).then(({ index, root }) => prepareSection(index, root, folder, language));
    const markup = live ? undefined : this.source.markup?.(spineIndex);
    const preparing =
      markup === undefined
        ? throughDocument()
        : markup.then(({ text, mediaType }) => prepareSectionFromMarkup(text, mediaType, folder, language) ?? throughDocument());
    const load = startLoad(
      preparing.then((section) => {
        if (!live) this.prepared.keep(spineIndex, section, epoch);
        return section;
      }),
    );
    if (!live) {
      const entry = { epoch, language, load };
      this.preparing.set(spineIndex, entry);
      void load.result.then(() => {
        if (this.preparing.get(spineIndex) === entry) this.preparing.delete(spineIndex);
      });
    }
    return load;
  }

  private send(search: RunningSearch, results: PublicationSearchResult[], isComplete: boolean): void {
    // The last check before anything leaves: a cancelled search stays silent.
    if (search.cancelled) return;
    this.emit(search.searchID, results, isComplete);
  }

  private async run(search: RunningSearch, query: string): Promise<void> {
    // The reply to startSearch goes first; the work begins on a later turn.
    await this.yieldToPage();
    const language = this.source.language();
    const folder = this.folderFor(language);
    const foldedQuery = folder.foldQuery(query);
    if (foldedQuery.length === 0) {
      this.send(search, [], true);
      return;
    }
    let pending: PublicationSearchResult[] = [];
    let lastBatch = this.now();
    let total = 0;
    const sections = this.source.sections();
    // Section loads by position in `sections`, requested up to sectionsAhead past the one searched.
    const loads: (PendingLoad | undefined)[] = [];
    let requested = 0;
    let lastTurn = this.now();
    // Sources are asked for in growing reads, the next one while the last is searched.
    let prefetched = 0;
    let nextRead = this.firstRead;
    for (let position = 0; position < sections.length && total < this.maximumResults; position += 1) {
      while (prefetched < sections.length && prefetched <= position + this.sectionsAhead + nextRead) {
        this.prefetch(sections, prefetched, prefetched + nextRead);
        prefetched += nextRead;
        nextRead = Math.min(this.sectionsPerRead, nextRead * 2);
      }
      for (; requested < sections.length && requested <= position + this.sectionsAhead; requested += 1) {
        loads[requested] = this.prepare((sections[requested] as SearchSection).spineIndex, folder, language);
      }
      const section = sections[position] as SearchSection;
      const loading = loads[position] as PendingLoad;
      loads[position] = undefined;
      // A load still under way ends in a task of its own: the page has its turns while it is awaited.
      const waited = !loading.settled;
      const loaded = await loading.result;
      if (search.cancelled) return;
      if (waited) lastTurn = this.now();
      if (loaded.ok) {
        const results = searchSection(
          section,
          loaded.value,
          foldedQuery,
          (progression) => this.source.totalProgression(section.spineIndex, progression),
          this.maximumResults - total,
        );
        total += results.length;
        pending = pending.concat(results);
      }
      // A section that could not be read is passed over; the rest of the book is still searched.
      if (pending.length > 0 && (pending.length >= this.batchSize || this.now() - lastBatch >= this.batchIntervalMilliseconds)) {
        this.send(search, pending, false);
        pending = [];
        lastBatch = this.now();
      }
      if (this.now() - lastTurn >= this.workMillisecondsPerTurn) {
        await this.yieldToPage();
        if (search.cancelled) return;
        lastTurn = this.now();
      }
    }
    this.send(search, pending, true);
  }
}

type Loaded = { ok: true; value: PreparedSection } | { ok: false; error: unknown };

interface PendingLoad {
  result: Promise<Loaded>;
  settled: boolean;
}

// Follows a section's preparation; `settled` tells, without awaiting, whether it has ended.
function startLoad(preparing: Promise<PreparedSection>): PendingLoad {
  const pending = { settled: false } as PendingLoad;
  pending.result = preparing.then(
    (value): Loaded => {
      pending.settled = true;
      return { ok: true, value };
    },
    (error: unknown): Loaded => {
      pending.settled = true;
      return { ok: false, error };
    },
  );
  return pending;
}
