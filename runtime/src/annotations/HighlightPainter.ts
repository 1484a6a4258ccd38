// Drawing highlights in a section frame without touching the book's text: the CSS Custom Highlight
// API where the engine has it, else boxes in an overlay that the runtime marks as its own (so CFIs
// and text indices look through it) and draws again after every relayout.
import { runtimeNodeAttribute } from '../cfi/ignoredNodes';

export interface HighlightPainter {
  // Replaces what is drawn by these ranges.
  draw(ranges: readonly Range[]): void;
  // Shows or hides the pulse over these ranges.
  pulse(ranges: readonly Range[], visible: boolean): void;
  // Draws again after the layout changed (the highlight API follows layout by itself).
  refresh(): void;
  dispose(): void;
}

export const annotationHighlightName = 'tomekeeper-annotation';
export const pulseHighlightName = 'tomekeeper-annotation-pulse';
const annotationColor = 'rgba(255, 212, 0, 0.45)';
const pulseColor = 'rgba(255, 150, 0, 0.8)';

function ensureStyle(document: Document, css: string): HTMLStyleElement {
  const existing = document.querySelector(`style[${runtimeNodeAttribute}="highlights"]`);
  if (existing !== null) return existing as HTMLStyleElement;
  const style = document.createElementNS('http://www.w3.org/1999/xhtml', 'style') as HTMLStyleElement;
  style.setAttribute(runtimeNodeAttribute, 'highlights');
  style.textContent = css;
  (document.head ?? document.documentElement).appendChild(style);
  return style;
}

type HighlightWindow = Window & { CSS?: { highlights?: HighlightRegistry }; Highlight?: typeof Highlight };

class CustomHighlightPainter implements HighlightPainter {
  private readonly registry: HighlightRegistry;
  private readonly HighlightType: typeof Highlight;
  private readonly style: HTMLStyleElement;

  constructor(document: Document, registry: HighlightRegistry, HighlightType: typeof Highlight) {
    this.registry = registry;
    this.HighlightType = HighlightType;
    this.style = ensureStyle(
      document,
      `::highlight(${annotationHighlightName}) { background-color: ${annotationColor}; }\n` +
        `::highlight(${pulseHighlightName}) { background-color: ${pulseColor}; }\n`,
    );
  }

  draw(ranges: readonly Range[]): void {
    if (ranges.length === 0) this.registry.delete(annotationHighlightName);
    else this.registry.set(annotationHighlightName, new this.HighlightType(...ranges));
  }

  pulse(ranges: readonly Range[], visible: boolean): void {
    if (!visible || ranges.length === 0) {
      this.registry.delete(pulseHighlightName);
      return;
    }
    const highlight = new this.HighlightType(...ranges);
    highlight.priority = 1;
    this.registry.set(pulseHighlightName, highlight);
  }

  refresh(): void {}

  dispose(): void {
    try {
      this.registry.delete(annotationHighlightName);
      this.registry.delete(pulseHighlightName);
      this.style.remove();
    } catch {
      // A frame already gone takes its highlights with it.
    }
  }
}

class OverlayPainter implements HighlightPainter {
  private readonly document: Document;
  private readonly layer: HTMLElement;
  private ranges: readonly Range[] = [];
  private pulsed: readonly Range[] = [];

  constructor(document: Document) {
    this.document = document;
    ensureStyle(
      document,
      `[${runtimeNodeAttribute}="highlight-overlay"] { position: absolute; left: 0; top: 0; width: 0; height: 0; pointer-events: none; z-index: 2147483647; }\n` +
        `[${runtimeNodeAttribute}="highlight-overlay"] > div { position: absolute; background-color: ${annotationColor}; mix-blend-mode: multiply; }\n` +
        `[${runtimeNodeAttribute}="highlight-overlay"] > div.pulse { background-color: ${pulseColor}; }\n`,
    );
    this.layer = document.createElementNS('http://www.w3.org/1999/xhtml', 'div') as HTMLElement;
    this.layer.setAttribute(runtimeNodeAttribute, 'highlight-overlay');
    document.documentElement.appendChild(this.layer);
  }

  draw(ranges: readonly Range[]): void {
    this.ranges = ranges;
    this.refresh();
  }

  pulse(ranges: readonly Range[], visible: boolean): void {
    this.pulsed = visible ? ranges : [];
    this.refresh();
  }

  // Boxes are placed in the root element's own coordinates: the root's box and the range's boxes
  // carry the same page translation, which the difference takes away.
  refresh(): void {
    this.layer.replaceChildren();
    const origin = this.document.documentElement.getBoundingClientRect();
    const add = (range: Range, pulse: boolean): void => {
      for (const rect of Array.from(range.getClientRects())) {
        if (rect.width === 0 || rect.height === 0) continue;
        const box = this.document.createElementNS('http://www.w3.org/1999/xhtml', 'div') as HTMLElement;
        if (pulse) box.className = 'pulse';
        box.style.left = `${rect.left - origin.left}px`;
        box.style.top = `${rect.top - origin.top}px`;
        box.style.width = `${rect.width}px`;
        box.style.height = `${rect.height}px`;
        this.layer.appendChild(box);
      }
    };
    for (const range of this.ranges) add(range, false);
    for (const range of this.pulsed) add(range, true);
  }

  dispose(): void {
    this.layer.remove();
  }
}

export function makeHighlightPainter(document: Document): HighlightPainter {
  const view = document.defaultView as HighlightWindow | null;
  const registry = view?.CSS?.highlights;
  const HighlightType = view?.Highlight;
  if (registry !== undefined && HighlightType !== undefined) return new CustomHighlightPainter(document, registry, HighlightType);
  return new OverlayPainter(document);
}
