// Page arithmetic of a section laid out in columns. The section's content runs along one axis (the
// inline axis of its writing mode) in pages of `pageSize` plus a gap; the arithmetic here is the
// same for left-to-right, right-to-left and top-to-bottom progressions.

export type PageAxis = 'horizontal' | 'vertical';
// `reverse` is the right-to-left progression of horizontal pages.
export type ColumnProgression = 'forward' | 'reverse';

export interface PageGeometry {
  axis: PageAxis;
  progression: ColumnProgression;
  // The visible extent of one page along the axis, in CSS pixels.
  pageSize: number;
  // The gap between the last column of a page and the first of the next one.
  gap: number;
}

export function pageStride(geometry: PageGeometry): number {
  return geometry.pageSize + geometry.gap;
}

// The number of pages that a content extent fills. A page holds `pageSize` of content; the gap
// after the last page does not count.
export function pageCountForExtent(extent: number, geometry: PageGeometry): number {
  if (!(extent > 0) || !(geometry.pageSize > 0)) return 1;
  // A fraction of a pixel past a page boundary is rounding, not a page.
  return Math.max(1, Math.ceil((extent + geometry.gap - 0.5) / pageStride(geometry)));
}

// The signed translation that brings a page into view.
export function translationForPage(page: number, geometry: PageGeometry): number {
  const distance = page * pageStride(geometry);
  return geometry.progression === 'forward' ? -distance : distance;
}

// Which page a content coordinate lies on, given the coordinate that the page start has when the
// section is shown at page 0 (0 for forward pages; the right edge of the page for reverse ones).
export function pageForCoordinate(coordinate: number, geometry: PageGeometry, pageStart = 0): number {
  const distance = geometry.progression === 'forward' ? coordinate - pageStart : pageStart - coordinate;
  return Math.max(0, Math.floor(distance / pageStride(geometry)));
}

export function clampPage(page: number, pageCount: number): number {
  return Math.max(0, Math.min(Math.max(0, pageCount - 1), Math.floor(page)));
}

// Progress through a section at the start of a page.
export function progressionForPage(page: number, pageCount: number): number {
  if (pageCount <= 1) return 0;
  return clampPage(page, pageCount) / pageCount;
}

// The page that holds a progression through the section.
export function pageForProgression(progression: number, pageCount: number): number {
  if (!Number.isFinite(progression)) return 0;
  return clampPage(Math.floor(progression * pageCount + 1e-9), pageCount);
}

// How many columns a page shows: `adaptive` takes two when the window is wide enough for two
// readable columns. Vertical text always takes one, since its columns stack along the page.
export function effectiveColumnCount(
  layout: 'adaptive' | 'singlePage' | 'doublePage',
  viewportWidth: number,
  viewportHeight: number,
  axis: PageAxis,
): number {
  if (axis === 'vertical') return 1;
  if (layout === 'singlePage') return 1;
  if (layout === 'doublePage') return 2;
  return viewportWidth >= adaptiveSpreadMinimumWidth && viewportWidth > viewportHeight ? 2 : 1;
}

export const adaptiveSpreadMinimumWidth = 1000;
