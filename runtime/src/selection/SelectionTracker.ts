// Watches the text selection in the book's section frames and tells the native side when one
// appears, changes or disappears, with its box in the web view's coordinates for the callout.
import type { ReaderSelectionRect } from '../bridge/records';
import type { SectionView } from '../layout/SectionView';
import { rangeRectInWebView, SelectionChangeFilter, type SelectionState } from './SelectionRecord';

export interface SelectionTrackerEnvironment {
  currentSection(): SectionView | undefined;
  emitSelectionAvailabilityChanged(available: boolean, rect: ReaderSelectionRect | undefined): void;
}

// Dragging a selection fires many events; one report follows once it has rested this long.
const settleMilliseconds = 60;

export class SelectionTracker {
  private readonly environment: SelectionTrackerEnvironment;
  private readonly filter = new SelectionChangeFilter();
  private readonly listeners = new Map<SectionView, () => void>();
  private timer: ReturnType<typeof setTimeout> | undefined;

  constructor(environment: SelectionTrackerEnvironment) {
    this.environment = environment;
  }

  attach(view: SectionView): void {
    if (this.listeners.has(view)) return;
    const listener = (): void => this.schedule();
    view.document.addEventListener('selectionchange', listener);
    this.listeners.set(view, listener);
  }

  detach(view: SectionView): void {
    const listener = this.listeners.get(view);
    this.listeners.delete(view);
    if (listener === undefined) return;
    try {
      view.document.removeEventListener('selectionchange', listener);
    } catch {
      // A frame already gone has no document to listen on.
    }
    this.schedule();
  }

  // After a move: a selection left in a frame that is no longer shown is dropped, and the box of
  // the one on screen is reported again if the page moved under it.
  placementChanged(): void {
    const current = this.environment.currentSection();
    for (const view of this.listeners.keys()) {
      if (view === current) continue;
      try {
        const selection = view.document.getSelection();
        if (selection !== null && selection.rangeCount > 0) selection.removeAllRanges();
      } catch {
        // Nothing to clear in a frame without a document.
      }
    }
    this.schedule();
  }

  // Drops the selection of the section on screen; the report that it is gone follows.
  clearSelection(): void {
    const view = this.environment.currentSection();
    if (view === undefined) return;
    try {
      view.document.getSelection()?.removeAllRanges();
    } catch {
      // A frame without a document has no selection.
    }
    this.schedule();
  }

  reset(): void {
    clearTimeout(this.timer);
    this.timer = undefined;
    this.filter.reset();
  }

  private schedule(): void {
    clearTimeout(this.timer);
    this.timer = setTimeout(() => {
      this.timer = undefined;
      this.report();
    }, settleMilliseconds);
  }

  private currentState(): { state: SelectionState; key: string } {
    const view = this.environment.currentSection();
    if (view === undefined) return { state: { available: false }, key: '' };
    let selection: Selection | null;
    try {
      selection = view.document.getSelection();
    } catch {
      return { state: { available: false }, key: '' };
    }
    if (selection === null || selection.rangeCount === 0 || selection.isCollapsed) return { state: { available: false }, key: '' };
    const range = selection.getRangeAt(0);
    if (range.toString().trim().length === 0) return { state: { available: false }, key: '' };
    const rect = rangeRectInWebView(range, view.frame);
    const key = `${view.spineIndex}:${range.startOffset}:${range.endOffset}:${range.toString().length}`;
    return { state: rect === undefined ? { available: true } : { available: true, rect }, key };
  }

  private report(): void {
    const { state, key } = this.currentState();
    if (this.filter.accept(state, key)) this.environment.emitSelectionAvailabilityChanged(state.available, state.rect);
  }
}
