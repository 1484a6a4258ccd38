// Between stored locators and laid-out sections: which section a locator names, which page of it
// holds the locator, and the locator of what a section shows. Pure over the section views and the
// book's weights; the reader decides when to ask.
import type { Locator, ReaderPositionResult } from '../bridge/records';
import { cfiForPoint, resolveCfiPoint, type CfiSpinePosition, type DomPoint } from '../cfi/CfiDocument';
import { pageForProgression } from '../layout/PageGeometry';
import type { SectionView } from '../layout/SectionView';
import { excerptAt, findExcerpt } from '../locator/Excerpt';
import { clampUnit, type SectionWeights } from '../locator/Progression';
import { resolveURL } from '../publication/hrefs';
import type { SpineItem } from '../publication/PackageDocument';

// Where to show a section: a page, and the point whose line should stand first when it scrolls.
export interface SectionPlace {
  page: number;
  point?: DomPoint;
}

// How a stored locator was placed: by its CFI (with or without its text assertion), its excerpt,
// its progression in the section or in the book, or at the section's start.
export type PlacedLocator = SectionPlace & { resolution: string };

// What placement needs of the open book.
export interface BookPlaces {
  spine: readonly SpineItem[];
  resourceBaseURL: string;
  weights: SectionWeights;
  spineIndexForURL(url: string): number | undefined;
}

// The section a stored locator belongs to, by href or index; none when neither names one.
export function sectionOfLocator(locator: Locator, book: BookPlaces): number | undefined {
  try {
    const byHref = book.spineIndexForURL(resolveURL(locator.spineHref, book.resourceBaseURL));
    if (byHref !== undefined) return byHref;
  } catch {
    // An href that is not a URL falls back to the index.
  }
  const index = locator.spineIndex;
  return Number.isInteger(index) && index >= 0 && index < book.spine.length ? index : undefined;
}

// The section to show for a locator: the one it names, or where its progression in the book
// falls, or else `fallback`.
export function sectionToShow(locator: Locator, book: BookPlaces, fallback: number): { spineIndex: number; fromTotalProgression: boolean } {
  const named = sectionOfLocator(locator, book);
  if (named !== undefined) return { spineIndex: named, fromTotalProgression: false };
  if (locator.totalProgression !== undefined) {
    return { spineIndex: book.weights.locate(locator.totalProgression).spineIndex, fromTotalProgression: true };
  }
  return { spineIndex: fallback, fromTotalProgression: true };
}

// The place of the element that a link's fragment names (its id, percent-decoded), or the
// section's start where there is none.
export function placeFragment(view: SectionView, fragment: string | undefined): number | SectionPlace {
  if (fragment === undefined || fragment.length === 0) return 0;
  let id = fragment;
  try {
    id = decodeURIComponent(fragment);
  } catch {
    // A fragment with a stray "%" is taken as written.
  }
  const element = view.document.getElementById(id);
  if (element === null || element.parentNode === null) return 0;
  const offset = Array.prototype.indexOf.call(element.parentNode.childNodes, element) as number;
  return { page: view.pageOfPoint(element.parentNode, offset), point: { node: element.parentNode, offset } };
}

// Finds the page of a locator in a laid-out section, trying the CFI, then the excerpt near the
// progression, then the progression, then the section start.
export function placeLocator(view: SectionView, locator: Locator, fromTotalProgression: boolean, weights: SectionWeights): PlacedLocator {
  const index = view.text();
  if (locator.cfi !== undefined && !fromTotalProgression) {
    try {
      const resolved = resolveCfiPoint(view.document, locator.cfi, index);
      if (resolved.quality !== 'textAssertionMismatch') {
        const resolution = resolved.quality === 'textAssertion' ? 'cfi-text-assertion' : 'cfi';
        return { page: view.pageOfPoint(resolved.point.node, resolved.point.offset), resolution, point: resolved.point };
      }
    } catch {
      // An unusable CFI falls through to the excerpt.
    }
  }
  let progression = locator.sectionProgression;
  if (fromTotalProgression && locator.totalProgression !== undefined) {
    progression = weights.locate(locator.totalProgression).sectionProgression;
  }
  if (locator.excerpt !== undefined) {
    const expected = progression === undefined ? undefined : Math.round(clampUnit(progression) * index.text.length);
    const position = findExcerpt(index.text, locator.excerpt, expected);
    const point = position === undefined ? undefined : index.pointAt(position);
    if (point !== undefined) return { page: view.pageOfPoint(point.node, point.offset), resolution: 'excerpt', point };
  }
  if (progression !== undefined) {
    const point = index.pointAt(Math.round(clampUnit(progression) * index.text.length));
    const page = point === undefined ? pageForProgression(progression, view.pageCount) : view.pageOfPoint(point.node, point.offset);
    return { page, resolution: fromTotalProgression ? 'total-progression' : 'section-progression' };
  }
  return { page: 0, resolution: 'section-start' };
}

// The locator of what `view`, the section of `item`, shows in `viewport`: its first visible
// character's CFI and excerpt, and its progression in the section and in the book.
export function locatorOnScreen(
  view: SectionView,
  item: SpineItem,
  spinePosition: CfiSpinePosition,
  weights: SectionWeights,
  viewport: HTMLElement,
): Locator {
  view.syncScrolledPage(viewport);
  const locator: Locator = { spineHref: item.href, spineIndex: item.index };
  const index = view.text();
  const position = view.firstVisibleTextPosition(viewport);
  let sectionProgression: number;
  if (position !== undefined && index.text.length > 0) {
    const point = index.pointAt(position);
    if (point !== undefined) locator.cfi = cfiForPoint(point as DomPoint, spinePosition, index);
    sectionProgression = position / index.text.length;
    const excerpt = excerptAt(index.text, position);
    if (excerpt !== undefined) locator.excerpt = excerpt;
  } else {
    sectionProgression = view.pageCount <= 1 ? 0 : view.page / view.pageCount;
  }
  // The first page of a section is its start, whatever unseen text (white space, hidden
  // elements) comes before its first visible character.
  if (view.page === 0 && !view.isScrolledPastStart(viewport)) sectionProgression = 0;
  locator.sectionProgression = clampUnit(sectionProgression);
  locator.totalProgression = weights.totalProgression(item.index, locator.sectionProgression);
  return locator;
}

// The reader's place in `view`: their anchor while it stands on the page shown (its progression in
// the book weighed again, as the weighing may have moved on since), else what the screen shows. A
// page holds more than its first character; a reader who went to a place mid-page, or whose page
// was laid out again around their place, keeps that place and not the page's start.
export function readersPlace(
  anchor: Locator | undefined,
  view: SectionView,
  item: SpineItem,
  spinePosition: CfiSpinePosition,
  book: BookPlaces,
  viewport: HTMLElement,
  fallback: number,
): Locator {
  if (anchor?.cfi === undefined || !isLocatorOnScreen(anchor, view, book, viewport, fallback)) {
    return locatorOnScreen(view, item, spinePosition, book.weights, viewport);
  }
  if (anchor.sectionProgression === undefined) return anchor;
  return { ...anchor, totalProgression: book.weights.totalProgression(view.spineIndex, anchor.sectionProgression) };
}

// Whether the locator's place is on the page (or spread) that `view` shows; a locator that names
// no section stands in `fallback`.
export function isLocatorOnScreen(locator: Locator, view: SectionView, book: BookPlaces, viewport: HTMLElement, fallback: number): boolean {
  const { spineIndex, fromTotalProgression } = sectionToShow(locator, book, fallback);
  if (spineIndex !== view.spineIndex) return false;
  const placed = placeLocator(view, locator, fromTotalProgression, book.weights);
  if (placed.resolution === 'section-start') return false;
  if (placed.point !== undefined) return view.isPointOnScreen(placed.point.node, placed.point.offset, viewport);
  return placed.page === view.page;
}

// Where the reader stands in `view`: its page, and whether it is at the start or the end of the
// book's linear sections, `linearOrder`.
export function readerPosition(view: SectionView, linearOrder: readonly number[], viewport: HTMLElement, locatorResolution?: string): ReaderPositionResult {
  view.syncScrolledPage(viewport);
  const result: ReaderPositionResult = {
    spineIndex: view.spineIndex,
    page: view.page + 1,
    pageCount: view.pageCount,
    atStart: view.spineIndex === linearOrder[0] && view.page === 0,
    atEnd: view.spineIndex === linearOrder[linearOrder.length - 1] && view.page === view.pageCount - 1,
  };
  if (locatorResolution !== undefined) result.locatorResolution = locatorResolution;
  return result;
}
