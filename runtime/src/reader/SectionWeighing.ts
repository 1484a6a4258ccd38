// The weighing of a book's sections: each section's text length, read in the background after the
// open, makes the book's progression (SectionWeights) follow the text rather than the count of
// sections.
import type { SectionWeights } from '../locator/Progression';
import type { SpineItem } from '../publication/PackageDocument';
import type { TextLoader } from '../publication/ResourceLoader';
import { makeTaskYield } from '../search/TaskYield';

// How the sections are weighed.
export interface SectionMeasure {
  // The length of the section's text.
  length(item: SpineItem): Promise<number>;
  // Starts reading these sections together, ahead of length(); a hint only.
  prefetch?(items: readonly SpineItem[]): void;
}

export interface WeighingOptions {
  // How many sections are asked for together, and how many such reads run ahead of the section
  // weighed: the native side reads several at once on its pool while this page prepares. The
  // first read asks for firstRead sections and each next one for twice as many, up to
  // sectionsPerRead, so that the first sections arrive soon after the open.
  sectionsPerRead?: number;
  firstRead?: number;
  readsAhead?: number;
  // The weighing gives the page a turn once it has worked this long since the page last had one.
  workMillisecondsPerTurn?: number;
  yieldToPage?: () => Promise<void>;
  now?: () => number;
}

// The length of the text of the section's document parsed as XML: its body's, or its root's.
export async function documentTextLength(loadText: TextLoader, url: string): Promise<number> {
  const text = await loadText(url);
  const parsed = new DOMParser().parseFromString(text, 'application/xhtml+xml');
  return (parsed.body ?? parsed.documentElement)?.textContent?.length ?? text.length;
}

// Weighs every section in spine order; stops once `isCurrent` says the book was closed. A section
// that cannot be weighed keeps the estimated weight.
export async function weighSections(
  spine: readonly SpineItem[],
  weights: SectionWeights,
  measure: SectionMeasure,
  isCurrent: () => boolean,
  options: WeighingOptions = {},
): Promise<void> {
  const sectionsPerRead = Math.max(1, options.sectionsPerRead ?? 64);
  const readsAhead = Math.max(1, options.readsAhead ?? 3);
  let nextRead = Math.min(sectionsPerRead, Math.max(1, options.firstRead ?? 8));
  const workMillisecondsPerTurn = options.workMillisecondsPerTurn ?? 8;
  const yieldToPage = options.yieldToPage ?? makeTaskYield();
  const now = options.now ?? (() => Date.now());
  let prefetched = 0;
  let lastTurn = now();
  // Lengths are handed over at each turn rather than one by one: every change makes the weights
  // sum the book again, which a search running meanwhile would pay for at each of its sections.
  const measured: [number, number][] = [];
  const handOver = (): void => {
    for (const [index, length] of measured) weights.setLength(index, length);
    measured.length = 0;
  };
  for (let position = 0; position < spine.length; position += 1) {
    if (!isCurrent()) return;
    while (prefetched < spine.length && prefetched <= position + readsAhead * nextRead) {
      measure.prefetch?.(spine.slice(prefetched, prefetched + nextRead));
      prefetched += nextRead;
      nextRead = Math.min(sectionsPerRead, nextRead * 2);
    }
    const item = spine[position] as SpineItem;
    try {
      measured.push([item.index, await measure.length(item)]);
    } catch {
      // A section that can't be read keeps the estimated weight.
    }
    if (now() - lastTurn >= workMillisecondsPerTurn) {
      handOver();
      await yieldToPage();
      lastTurn = now();
    }
  }
  if (isCurrent()) handOver();
}
