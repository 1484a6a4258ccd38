// Where a highlight stands in a section's text. The stored range CFI is tried first and kept when
// the words between its ends are still the highlighted ones; otherwise the highlighted words are
// looked for with the words that stood before and after them as witnesses. When neither holds, the
// highlight stays unplaced: a highlight on other words would be worse than none.
import type { Locator, TextContext } from '../bridge/records';
import { resolveCfi } from '../cfi/CfiDocument';
import type { TextIndex } from '../cfi/TextIndex';
import { clampUnit } from '../locator/Progression';
import { anchorQuote, collapseWhiteSpace, matchCollapsedAt, type AnchorDecision } from '../text/Anchoring';

export type AnnotationPlacement =
  | { kind: 'placed'; start: number; end: number; resolution: 'cfi' | 'excerpt' }
  | { kind: 'unresolved'; reason: Extract<AnchorDecision, { kind: 'unresolved' }>['reason'] };

export interface AnnotationQuote {
  locator: Locator;
  selectedText: string;
}

// The words of the CFI's range when they are the highlighted ones (white space runs aside).
function placeByCfi(document: Document, index: TextIndex, cfi: string, selectedText: string): { start: number; end: number; near: number } | { near: number } | undefined {
  let resolved;
  try {
    resolved = resolveCfi(document, cfi, index);
  } catch {
    return undefined;
  }
  const startPoint = 'point' in resolved ? resolved.point : resolved.start.point;
  const start = index.positionOfBoundary(startPoint.node, startPoint.offset);
  const matchedEnd = matchCollapsedAt(index.text, start, selectedText);
  if (matchedEnd === undefined) return { near: start };
  if ('point' in resolved) return { start, end: matchedEnd, near: start };
  const end = index.positionOfBoundary(resolved.end.point.node, resolved.end.point.offset);
  // The range may hold white space beyond the words, never other words.
  if (end < matchedEnd || index.text.slice(matchedEnd, end).trim().length > 0) return { near: start };
  return { start, end, near: start };
}

// The quote to look for: the selected words, with the excerpt's witnesses where they belong to them.
export function quoteOf(annotation: AnnotationQuote): TextContext {
  const excerpt = annotation.locator.excerpt;
  const exact = annotation.selectedText.trim().length > 0 ? annotation.selectedText : (excerpt?.exact ?? '');
  const quote: TextContext = { exact };
  if (excerpt === undefined) return quote;
  // The prefix stands before the locator's start, which is the selection's start.
  if (excerpt.prefix !== undefined) quote.prefix = excerpt.prefix;
  // The suffix follows the excerpt's exact text, which is the selection only when they agree.
  if (excerpt.suffix !== undefined && collapseWhiteSpace(excerpt.exact).trim() === collapseWhiteSpace(exact).trim()) quote.suffix = excerpt.suffix;
  return quote;
}

export function placeAnnotation(document: Document, index: TextIndex, annotation: AnnotationQuote): AnnotationPlacement {
  const { locator, selectedText } = annotation;
  let expected: number | undefined;
  if (locator.cfi !== undefined && selectedText.trim().length > 0) {
    const byCfi = placeByCfi(document, index, locator.cfi, selectedText);
    if (byCfi !== undefined && 'start' in byCfi) return { kind: 'placed', start: byCfi.start, end: byCfi.end, resolution: 'cfi' };
    if (byCfi !== undefined) expected = byCfi.near;
  }
  if (expected === undefined && locator.sectionProgression !== undefined) {
    expected = Math.round(clampUnit(locator.sectionProgression) * index.text.length);
  }
  const decision = anchorQuote(index.text, quoteOf(annotation), expected);
  if (decision.kind === 'unresolved') return decision;
  return { kind: 'placed', start: decision.start, end: decision.end, resolution: 'excerpt' };
}
