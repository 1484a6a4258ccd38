// The highlights of the open book: where each stands, drawing them in every section frame that is
// loaded, telling the native side when a highlight becomes placed or unplaced, pulsing one, and
// the context menu of a highlight.
import { BridgeRequestError } from '../bridge/BridgeRequestError';
import type { Locator } from '../bridge/records';
import type { TextIndex } from '../cfi/TextIndex';
import type { SectionView } from '../layout/SectionView';
import { frameToWebView, maximumSelectionLength, selectionLength } from '../selection/SelectionRecord';
import { rangeForSpan } from '../text/SectionText';
import { placeAnnotation, type AnnotationPlacement } from './AnnotationPlacement';
import { makeHighlightPainter, type HighlightPainter } from './HighlightPainter';

export interface RuntimeAnnotation {
  id: string;
  locator: Locator;
  selectedText: string;
  color: 'yellow';
}

export interface AnnotationRenderResult {
  rendered: boolean;
  resolution: string;
}

// What `resolution` says; `rendered` is true for the first two.
export type AnnotationResolution =
  // Placed where its CFI says, the words there being the highlighted ones.
  | 'cfi'
  // Placed by its words and the words around them; the CFI no longer led there.
  | 'excerpt'
  // Its words, or the words around them, are no longer in the section.
  | 'unresolved'
  // Its locator names no section of the book.
  | 'section-not-found'
  // Its section could not be read.
  | 'section-unavailable';

export interface AnnotationEnvironment {
  spineIndexOf(locator: Locator): number | undefined;
  // The section parsed off screen, with the TextIndex of its text.
  parsedSection(spineIndex: number): Promise<{ document: Document; index: TextIndex }>;
  // The frames that are loaded now.
  loadedSections(): Iterable<SectionView>;
  emitResolutionChanged(resolvedIDs: string[], unresolvedIDs: string[]): void;
  emitContextMenuRequested(id: string, x: number, y: number): void;
  // Runs the report of resolution changes later, so that a burst of changes goes up as one event.
  schedule?(task: () => void): void;
}

interface Entry {
  annotation: RuntimeAnnotation;
  spineIndex: number | undefined;
  resolution: AnnotationResolution;
}

interface SectionDrawing {
  painter: HighlightPainter;
  ranges: Map<string, Range>;
  contextMenu: (event: MouseEvent) => void;
}

const pulseSteps = [true, false, true, false, true, false];
const pulseStepMilliseconds = 250;

export function isPlaced(resolution: AnnotationResolution): boolean {
  return resolution === 'cfi' || resolution === 'excerpt';
}

export class AnnotationLayer {
  private readonly environment: AnnotationEnvironment;
  private readonly entries = new Map<string, Entry>();
  private readonly drawings = new Map<SectionView, SectionDrawing>();
  // What the native side was last told of each id, and what it is yet to be told.
  private readonly reported = new Map<string, boolean>();
  private readonly changes = new Map<string, boolean>();
  private reportScheduled = false;
  private pulseTimer: ReturnType<typeof setTimeout> | undefined;
  private pulseView: SectionView | undefined;

  constructor(environment: AnnotationEnvironment) {
    this.environment = environment;
  }

  async add(annotation: RuntimeAnnotation): Promise<AnnotationRenderResult> {
    if (selectionLength(annotation.selectedText) > maximumSelectionLength) {
      throw new BridgeRequestError('selection-too-long', `a highlight holds at most ${maximumSelectionLength} characters`);
    }
    if (this.entries.has(annotation.id)) this.undraw(annotation.id);
    const spineIndex = this.environment.spineIndexOf(annotation.locator);
    const entry: Entry = { annotation, spineIndex, resolution: spineIndex === undefined ? 'section-not-found' : 'unresolved' };
    this.entries.set(annotation.id, entry);
    if (spineIndex !== undefined) {
      const view = this.loadedView(spineIndex);
      if (view !== undefined) {
        this.placeInView(view, entry);
      } else {
        try {
          const parsed = await this.environment.parsedSection(spineIndex);
          // The entry may have been removed or replaced, or its section loaded, meanwhile.
          if (this.entries.get(annotation.id) !== entry) return { rendered: false, resolution: 'removed' };
          const loaded = this.loadedView(spineIndex);
          if (loaded !== undefined) this.placeInView(loaded, entry);
          else entry.resolution = resolutionOf(placeAnnotation(parsed.document, parsed.index, annotation));
        } catch {
          entry.resolution = 'section-unavailable';
        }
      }
    }
    this.noteState(entry);
    return { rendered: isPlaced(entry.resolution), resolution: entry.resolution };
  }

  remove(id: string): AnnotationRenderResult {
    if (!this.entries.has(id)) return { rendered: false, resolution: 'not-found' };
    this.undraw(id);
    this.entries.delete(id);
    this.reported.delete(id);
    this.changes.delete(id);
    return { rendered: false, resolution: 'removed' };
  }

  pulse(id: string): AnnotationRenderResult {
    const entry = this.entries.get(id);
    if (entry === undefined) return { rendered: false, resolution: 'not-found' };
    for (const [view, drawing] of this.drawings) {
      const range = drawing.ranges.get(id);
      if (range === undefined) continue;
      this.stopPulse();
      this.pulseView = view;
      let step = 0;
      const next = (): void => {
        const visible = pulseSteps[step];
        drawing.painter.pulse([range], visible === true);
        step += 1;
        this.pulseTimer = step <= pulseSteps.length ? setTimeout(next, pulseStepMilliseconds) : undefined;
      };
      next();
      return { rendered: true, resolution: entry.resolution };
    }
    return { rendered: false, resolution: entry.resolution };
  }

  ids(): { resolved: string[]; unresolved: string[] } {
    const resolved: string[] = [];
    const unresolved: string[] = [];
    for (const [id, entry] of this.entries) (isPlaced(entry.resolution) ? resolved : unresolved).push(id);
    return { resolved, unresolved };
  }

  resolutionOf(id: string): AnnotationResolution | undefined {
    return this.entries.get(id)?.resolution;
  }

  // A section frame is loaded and laid out: its highlights are placed in it and drawn.
  sectionPrepared(view: SectionView): void {
    if (this.drawings.has(view)) return;
    const contextMenu = (event: MouseEvent): void => this.handleContextMenu(view, event);
    const drawing: SectionDrawing = { painter: makeHighlightPainter(view.document), ranges: new Map(), contextMenu };
    this.drawings.set(view, drawing);
    view.document.addEventListener('contextmenu', contextMenu);
    for (const entry of this.entries.values()) {
      if (entry.spineIndex !== view.spineIndex) continue;
      this.placeInView(view, entry);
      this.noteState(entry);
    }
  }

  sectionReleased(view: SectionView): void {
    const drawing = this.drawings.get(view);
    if (drawing === undefined) return;
    this.drawings.delete(view);
    if (this.pulseView === view) this.stopPulse();
    try {
      view.document.removeEventListener('contextmenu', drawing.contextMenu);
    } catch {
      // The frame's document is already gone.
    }
    drawing.painter.dispose();
  }

  // After a move or relayout: overlays follow the new layout.
  placementChanged(): void {
    for (const drawing of this.drawings.values()) drawing.painter.refresh();
  }

  clear(): void {
    this.stopPulse();
    for (const view of [...this.drawings.keys()]) this.sectionReleased(view);
    this.entries.clear();
    this.reported.clear();
    this.changes.clear();
  }

  private loadedView(spineIndex: number): SectionView | undefined {
    for (const view of this.environment.loadedSections()) {
      if (view.spineIndex === spineIndex && this.drawings.has(view)) return view;
    }
    return undefined;
  }

  private placeInView(view: SectionView, entry: Entry): void {
    const drawing = this.drawings.get(view);
    if (drawing === undefined) return;
    const index = view.text();
    const placement = placeAnnotation(view.document, index, entry.annotation);
    entry.resolution = resolutionOf(placement);
    drawing.ranges.delete(entry.annotation.id);
    if (placement.kind === 'placed') {
      const range = rangeForSpan(index, placement.start, placement.end);
      if (range !== undefined) drawing.ranges.set(entry.annotation.id, range);
      else entry.resolution = 'unresolved';
    }
    drawing.painter.draw([...drawing.ranges.values()]);
  }

  private undraw(id: string): void {
    for (const drawing of this.drawings.values()) {
      if (drawing.ranges.delete(id)) drawing.painter.draw([...drawing.ranges.values()]);
    }
  }

  private stopPulse(): void {
    clearTimeout(this.pulseTimer);
    this.pulseTimer = undefined;
    if (this.pulseView !== undefined) this.drawings.get(this.pulseView)?.painter.pulse([], false);
    this.pulseView = undefined;
  }

  private noteState(entry: Entry): void {
    const id = entry.annotation.id;
    const placed = isPlaced(entry.resolution);
    if (this.reported.get(id) === placed) this.changes.delete(id);
    else this.changes.set(id, placed);
    if (this.changes.size === 0 || this.reportScheduled) return;
    this.reportScheduled = true;
    const schedule = this.environment.schedule ?? ((task: () => void) => setTimeout(task, 0));
    schedule(() => this.report());
  }

  // Sends the ids whose placement changed since the last report, each in the list of its new state.
  private report(): void {
    this.reportScheduled = false;
    const resolved: string[] = [];
    const unresolved: string[] = [];
    for (const [id, placed] of this.changes) {
      if (!this.entries.has(id) || this.reported.get(id) === placed) continue;
      this.reported.set(id, placed);
      (placed ? resolved : unresolved).push(id);
    }
    this.changes.clear();
    if (resolved.length > 0 || unresolved.length > 0) this.environment.emitResolutionChanged(resolved, unresolved);
  }

  private handleContextMenu(view: SectionView, event: MouseEvent): void {
    const drawing = this.drawings.get(view);
    if (drawing === undefined) return;
    const id = hitHighlight(drawing.ranges, event.clientX, event.clientY);
    if (id === undefined) return;
    event.preventDefault();
    const point = frameToWebView(view.frame, event.clientX, event.clientY);
    this.environment.emitContextMenuRequested(id, point.x, point.y);
  }
}

function resolutionOf(placement: AnnotationPlacement): AnnotationResolution {
  return placement.kind === 'placed' ? placement.resolution : 'unresolved';
}

// The highlight under a point of the frame, the last added winning where two overlap.
export function hitHighlight(ranges: ReadonlyMap<string, Range>, x: number, y: number): string | undefined {
  let hit: string | undefined;
  for (const [id, range] of ranges) {
    for (const rect of Array.from(range.getClientRects())) {
      if (x >= rect.left && x <= rect.right && y >= rect.top && y <= rect.bottom) {
        hit = id;
        break;
      }
    }
  }
  return hit;
}
