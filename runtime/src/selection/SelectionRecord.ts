// The reader's selection as the bridge carries it: the selected text, a range CFI, the progression
// of its start and an excerpt whose witnesses (the words just before and after) let a highlight made
// from it find the same words again.
import type { Locator, ReaderSelectionRect, TextSelection } from '../bridge/records';
import { cfiForRange, type CfiSpinePosition } from '../cfi/CfiDocument';
import type { TextIndex } from '../cfi/TextIndex';
import { clampUnit } from '../locator/Progression';

export const maximumSelectionLength = 2000;
export const selectionContextLength = 32;

// Characters as the reader counts them: code points, so a letter outside the basic plane is one.
export function selectionLength(text: string): number {
  let count = 0;
  for (const _character of text) count += 1;
  return count;
}

export interface SelectionSection {
  spineHref: string;
  spineIndex: number;
  cfiSpine: CfiSpinePosition;
  totalProgression(sectionProgression: number): number;
}

// The TextSelection of a non-empty range, or undefined when it holds no text of the section.
export function textSelectionForRange(range: Range, index: TextIndex, section: SelectionSection): TextSelection | undefined {
  const start = index.positionOfBoundary(range.startContainer, range.startOffset);
  const end = index.positionOfBoundary(range.endContainer, range.endOffset);
  if (end <= start) return undefined;
  const selectedText = index.text.slice(start, end);
  if (selectedText.trim().length === 0) return undefined;
  const sectionProgression = index.text.length === 0 ? 0 : clampUnit(start / index.text.length);
  const locator: Locator = {
    spineHref: section.spineHref,
    spineIndex: section.spineIndex,
    cfi: cfiForRange(range, section.cfiSpine, index),
    sectionProgression,
    totalProgression: section.totalProgression(sectionProgression),
  };
  const prefix = index.text.slice(Math.max(0, start - selectionContextLength), start);
  const suffix = index.text.slice(end, end + selectionContextLength);
  locator.excerpt = { exact: selectedText, ...(prefix.length > 0 ? { prefix } : {}), ...(suffix.length > 0 ? { suffix } : {}) };
  return { locator, selectedText };
}

// The frame of a book section and the scale at which it is shown (pre-paginated sections are
// scaled to fit), to turn the frame's coordinates into those of the web view.
export function frameToWebView(frame: HTMLIFrameElement, x: number, y: number): { x: number; y: number } {
  const box = frame.getBoundingClientRect();
  const scaleX = frame.offsetWidth > 0 ? box.width / frame.offsetWidth : 1;
  const scaleY = frame.offsetHeight > 0 ? box.height / frame.offsetHeight : 1;
  return { x: box.left + x * scaleX, y: box.top + y * scaleY };
}

// The bounding box of a range in the web view's coordinates, or undefined when it has no box.
export function rangeRectInWebView(range: Range, frame: HTMLIFrameElement): ReaderSelectionRect | undefined {
  const rects = Array.from(range.getClientRects()).filter((rect) => rect.width > 0 || rect.height > 0);
  if (rects.length === 0) return undefined;
  const left = Math.min(...rects.map((rect) => rect.left));
  const top = Math.min(...rects.map((rect) => rect.top));
  const right = Math.max(...rects.map((rect) => rect.right));
  const bottom = Math.max(...rects.map((rect) => rect.bottom));
  const topLeft = frameToWebView(frame, left, top);
  const bottomRight = frameToWebView(frame, right, bottom);
  const rect = { x: topLeft.x, y: topLeft.y, width: bottomRight.x - topLeft.x, height: bottomRight.y - topLeft.y };
  if (![rect.x, rect.y, rect.width, rect.height].every(Number.isFinite) || rect.width < 0 || rect.height < 0) return undefined;
  return rect;
}

// What the selection tracker reports: whether a selection with text exists, and where.
export interface SelectionState {
  available: boolean;
  rect?: ReaderSelectionRect;
}

function sameRect(a: ReaderSelectionRect | undefined, b: ReaderSelectionRect | undefined): boolean {
  if (a === undefined || b === undefined) return a === b;
  return Math.abs(a.x - b.x) < 0.5 && Math.abs(a.y - b.y) < 0.5 && Math.abs(a.width - b.width) < 0.5 && Math.abs(a.height - b.height) < 0.5;
}

// Decides which selection states are worth an event: every appearance and disappearance, and every
// change of the selected text or of its place; repeats of the same state are not sent again.
export class SelectionChangeFilter {
  private last: { state: SelectionState; key: string } = { state: { available: false }, key: '' };

  // `key` identifies the selected text (its CFI, say); returns true when the state must be sent.
  accept(state: SelectionState, key: string): boolean {
    const previous = this.last;
    this.last = { state, key: state.available ? key : '' };
    if (!state.available) return previous.state.available;
    if (!previous.state.available) return true;
    return previous.key !== key || !sameRect(previous.state.rect, state.rect);
  }

  reset(): void {
    this.last = { state: { available: false }, key: '' };
  }
}
