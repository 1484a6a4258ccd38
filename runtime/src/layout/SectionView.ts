// One book section in its own iframe. The frame loads the section's own URL on the publication
// scheme, so the section's content policy applies and its scripts never run; this page shares the
// frame's origin and styles and measures it from outside. Only documents of a rendered type are
// framed (renderedSpineMediaTypes). The frame carries no sandbox attribute: WebKit does not call
// this page's listeners on a document sandboxed without scripts, and the selection, the highlight
// menu and the relayout after late fonts all listen there.
import { runtimeNodeAttribute } from '../cfi/ignoredNodes';
import { TextIndex } from '../cfi/TextIndex';
import { firstVisiblePosition, type CharacterPlacement } from '../locator/FirstVisible';
import {
  clampPage,
  effectiveColumnCount,
  pageCountForExtent,
  pageForCoordinate,
  translationForPage,
  type PageAxis,
  type PageGeometry,
} from './PageGeometry';
import type { PageProgression } from '../publication/PackageDocument';
import { colorsForTheme, sectionStyleSheet, type PresentationSettings } from './Presentation';

export interface Viewport {
  width: number;
  height: number;
  margin: number;
  prefersDark: boolean;
}

const loadTimeoutMilliseconds = 8000;
const fontWaitMilliseconds = 3000;
const sizeWaitMilliseconds = 400;
const columnGap = 48;

export class SectionView {
  readonly frame: HTMLIFrameElement;
  readonly spineIndex: number;
  readonly fixedLayout: boolean;
  private textIndex: TextIndex | undefined;
  private geometry: PageGeometry = { axis: 'horizontal', progression: 'forward', pageSize: 1, gap: columnGap };
  private mode: PresentationSettings['mode'] = 'paginated';
  // Scrolled vertical writing runs across: its lines stand side by side and the view scrolls
  // sideways, from the right, over content this wide.
  private acrossExtent = 0;
  private currentPage = 0;
  // The size of the section's body when it was last laid out, and what it was laid out for.
  private laidOutBody = { width: 0, height: 0 };
  private laidOutFor: { settings: PresentationSettings; viewport: Viewport } | undefined;
  pageCount = 1;
  columnCount = 1;
  // The way the book's pages advance, where known: the columns of a paginated page run this way,
  // so that in a book read from right to left the next page of a spread is the left one, whatever
  // the direction of the section's text.
  private readonly pageProgression: PageProgression | undefined;

  constructor(spineIndex: number, fixedLayout: boolean, pageProgression?: PageProgression) {
    this.spineIndex = spineIndex;
    this.fixedLayout = fixedLayout;
    this.pageProgression = pageProgression;
    this.frame = document.createElement('iframe');
    this.frame.className = fixedLayout ? 'section-frame preparing fixed-layout' : 'section-frame preparing';
    this.frame.setAttribute('scrolling', 'no');
    this.frame.setAttribute('title', 'Book section');
  }

  get document(): Document {
    const contentDocument = this.frame.contentDocument;
    if (contentDocument === null) throw new Error('the section frame has no document');
    return contentDocument;
  }

  get page(): number {
    return this.currentPage;
  }

  get axis(): PageAxis {
    return this.geometry.axis;
  }

  load(url: string, stage: HTMLElement): Promise<void> {
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => reject(new Error(`section did not load: ${url}`)), loadTimeoutMilliseconds);
      this.frame.addEventListener(
        'load',
        () => {
          clearTimeout(timer);
          const contentDocument = this.frame.contentDocument;
          if (contentDocument === null || contentDocument.documentElement === null) {
            reject(new Error(`section document unreadable: ${url}`));
            return;
          }
          // The first layout reads the writing mode and the extent that the book's style sheets
          // give; measured before they apply, a vertical section is laid out as horizontal.
          void stylesheetsLoaded(contentDocument, loadTimeoutMilliseconds).then(() => resolve());
        },
        { once: true },
      );
      this.frame.src = url;
      stage.appendChild(this.frame);
    });
  }

  // Waits, for a while at most, for fonts that the section's layout started to load. Says whether
  // any were loading, in which case the section must be laid out again.
  async fontsSettled(limitMilliseconds = fontWaitMilliseconds): Promise<boolean> {
    const fonts = this.document.fonts as FontFaceSet | undefined;
    if (fonts === undefined || fonts.status !== 'loading') return false;
    await Promise.race([fonts.ready, new Promise((resolve) => setTimeout(resolve, limitMilliseconds))]);
    return true;
  }

  // Waits, for a while at most, until the body keeps one size over two drawn frames after its
  // layout: content that settles just after the first layout (style sheets applied late, images
  // decoded) would otherwise leave the first place shown on a layout about to change. Says whether
  // the body's size changed since it was laid out, in which case the section must be laid out again.
  async sizeSettled(limitMilliseconds = sizeWaitMilliseconds): Promise<boolean> {
    const body = this.frame.contentDocument?.body;
    if (body === null || body === undefined || this.fixedLayout) return false;
    const measure = () => ({ width: body.scrollWidth, height: body.scrollHeight });
    const deadline = performance.now() + limitMilliseconds;
    let last = measure();
    for (let steadyFrames = 0; steadyFrames < 2 && performance.now() < deadline; ) {
      await nextFrame();
      const now = measure();
      steadyFrames = now.width === last.width && now.height === last.height ? steadyFrames + 1 : 0;
      last = now;
    }
    return last.width !== this.laidOutBody.width || last.height !== this.laidOutBody.height;
  }

  // Calls `relayout` whenever fonts finish loading after the section was laid out.
  onLateFonts(relayout: () => void): void {
    const fonts = this.document.fonts as FontFaceSet | undefined;
    fonts?.addEventListener('loadingdone', () => relayout());
  }

  // In scrolled mode, calls `relayout` whenever the section's body changes size after it was laid
  // out (an image decoded late, a style sheet that arrived after the first layout): the frame is
  // as tall as the content measured, and would cut off what grew or show a gap for what shrank.
  onContentResize(relayout: () => void): void {
    const doc = this.document;
    const Observer = doc.defaultView?.ResizeObserver;
    if (Observer === undefined || doc.body === null || this.fixedLayout) return;
    new Observer(() => {
      const body = doc.body;
      if (body === null || this.mode !== 'scrolled') return;
      if (body.scrollWidth !== this.laidOutBody.width || body.scrollHeight !== this.laidOutBody.height) relayout();
    }).observe(doc.body);
  }

  // The way this section's content runs from page to page: right to left for right-to-left text
  // or vertical writing from the right, else left to right.
  contentProgression(): PageProgression {
    try {
      const doc = this.document;
      const style = doc.defaultView?.getComputedStyle(doc.body ?? doc.documentElement);
      if (style === undefined || style === null) return 'ltr';
      if (style.writingMode === 'vertical-rl' || style.writingMode === 'sideways-rl') return 'rtl';
      return style.direction === 'rtl' ? 'rtl' : 'ltr';
    } catch {
      return 'ltr';
    }
  }

  remove(): void {
    this.frame.remove();
  }

  show(visible: boolean): void {
    this.frame.classList.toggle('preparing', !visible);
  }

  text(): TextIndex {
    if (this.textIndex === undefined) this.textIndex = new TextIndex(this.document.body ?? this.document.documentElement);
    return this.textIndex;
  }

  private styleElement(): HTMLStyleElement {
    const doc = this.document;
    let style = doc.querySelector(`style[${runtimeNodeAttribute}="presentation"]`) as HTMLStyleElement | null;
    if (style === null) {
      style = doc.createElementNS('http://www.w3.org/1999/xhtml', 'style') as HTMLStyleElement;
      style.setAttribute(runtimeNodeAttribute, 'presentation');
      (doc.head ?? doc.documentElement).appendChild(style);
    }
    return style;
  }

  // Applies the settings and lays the section out for the viewport; the page is kept by the caller.
  layout(settings: PresentationSettings, viewport: Viewport): void {
    this.layoutSection(settings, viewport);
    this.laidOutFor = { settings, viewport };
    const body = this.frame.contentDocument?.body;
    if (body) this.laidOutBody = { width: body.scrollWidth, height: body.scrollHeight };
  }

  // Whether the last layout was for these settings (the reader replaces its settings on each
  // change) and a viewport of these measures.
  isLaidOutFor(settings: PresentationSettings, viewport: Viewport): boolean {
    const last = this.laidOutFor;
    if (last === undefined || last.settings !== settings) return false;
    const { width, height, margin, prefersDark } = last.viewport;
    return width === viewport.width && height === viewport.height && margin === viewport.margin && prefersDark === viewport.prefersDark;
  }

  private layoutSection(settings: PresentationSettings, viewport: Viewport): void {
    this.mode = settings.mode;
    this.styleElement().textContent = sectionStyleSheet(settings, colorsForTheme(settings.theme, viewport.prefersDark));
    if (this.fixedLayout) {
      this.layoutFixed(viewport);
      return;
    }
    const doc = this.document;
    const root = doc.documentElement;
    const body = doc.body;
    // The columns live on the root, which must run in the writing mode that the book gives its body.
    const bodyStyle = body === null ? undefined : doc.defaultView?.getComputedStyle(body);
    const writingMode = bodyStyle?.writingMode ?? 'horizontal-tb';
    const direction = bodyStyle?.direction ?? 'ltr';
    const axis: PageAxis = writingMode.startsWith('vertical') || writingMode.startsWith('sideways') ? 'vertical' : 'horizontal';
    const width = Math.max(1, viewport.width - 2 * viewport.margin);
    const height = viewport.height;
    const frameStyle = this.frame.style;
    // The viewport's own padding already holds the page margin on the start side.
    frameStyle.left = '0px';
    frameStyle.width = `${width}px`;
    // The frame takes its new width now, so that the section measured below is laid out at it
    // (a fresh frame would otherwise be measured at the default width of an iframe).
    void this.frame.offsetWidth;
    root.style.setProperty('writing-mode', writingMode);
    root.style.setProperty('direction', direction);
    // The body keeps the direction of its text when the columns run the other way.
    body?.style.setProperty('direction', direction);
    root.style.setProperty('transform', 'none');
    root.style.setProperty('margin', '0');
    if (settings.mode === 'scrolled') {
      for (const property of ['column-width', 'column-gap', 'column-fill', 'height', 'width', 'overflow']) root.style.removeProperty(property);
      this.columnCount = 1;
      if (axis === 'vertical') {
        this.geometry = { axis: 'horizontal', progression: 'reverse', pageSize: width, gap: 0 };
        frameStyle.height = `${height}px`;
        root.style.setProperty('height', `${height}px`);
        const contentWidth = Math.max(width, root.scrollWidth, body?.scrollWidth ?? 0);
        frameStyle.width = `${contentWidth}px`;
        this.acrossExtent = contentWidth;
        this.pageCount = pageCountForExtent(contentWidth, this.geometry);
        return;
      }
      this.acrossExtent = 0;
      this.geometry = { axis: 'vertical', progression: 'forward', pageSize: height, gap: 0 };
      frameStyle.height = `${height}px`;
      const contentHeight = Math.max(height, root.scrollHeight, body?.scrollHeight ?? 0);
      frameStyle.height = `${contentHeight}px`;
      this.pageCount = pageCountForExtent(contentHeight, this.geometry);
      return;
    }
    frameStyle.height = `${height}px`;
    const columnDirection = axis === 'horizontal' ? (this.pageProgression ?? direction) : direction;
    root.style.setProperty('direction', columnDirection);
    this.columnCount = effectiveColumnCount(settings.layout, viewport.width, viewport.height, axis);
    const pageSize = axis === 'horizontal' ? width : height;
    const columnSize = (pageSize - (this.columnCount - 1) * columnGap) / this.columnCount;
    root.style.setProperty('width', `${width}px`);
    root.style.setProperty('height', `${height}px`);
    root.style.setProperty('overflow', 'hidden');
    root.style.setProperty('column-width', `${Math.floor(columnSize)}px`);
    root.style.setProperty('column-gap', `${columnGap}px`);
    root.style.setProperty('column-fill', 'auto');
    this.geometry = {
      axis,
      progression: axis === 'horizontal' && columnDirection === 'rtl' ? 'reverse' : 'forward',
      pageSize,
      gap: columnGap,
    };
    const extent = axis === 'horizontal' ? root.scrollWidth : root.scrollHeight;
    this.pageCount = pageCountForExtent(extent, this.geometry);
    this.showPage(clampPage(this.currentPage, this.pageCount));
  }

  private layoutFixed(viewport: Viewport): void {
    const doc = this.document;
    const meta = doc.querySelector('meta[name="viewport"]');
    const content = meta?.getAttribute('content') ?? '';
    const width = Number(/width\s*=\s*(\d+)/.exec(content)?.[1] ?? doc.documentElement.scrollWidth);
    const height = Number(/height\s*=\s*(\d+)/.exec(content)?.[1] ?? doc.documentElement.scrollHeight);
    const scale = Math.min(viewport.width / Math.max(1, width), viewport.height / Math.max(1, height));
    const style = this.frame.style;
    style.width = `${width}px`;
    style.height = `${height}px`;
    // Centred in the whole viewport; the stage starts after the viewport's padding.
    style.left = `${Math.max(0, (viewport.width - width * scale) / 2) - viewport.margin}px`;
    style.top = `${Math.max(0, (viewport.height - height * scale) / 2)}px`;
    style.transform = `scale(${scale})`;
    this.geometry = { axis: 'horizontal', progression: 'forward', pageSize: width, gap: 0 };
    this.pageCount = 1;
    this.columnCount = 1;
    this.currentPage = 0;
  }

  // Moves the view to a page without laying the section out again.
  showPage(page: number, container?: HTMLElement): void {
    this.currentPage = clampPage(page, this.pageCount);
    if (this.fixedLayout) return;
    if (this.mode === 'scrolled') {
      if (container === undefined) return;
      if (this.scrollsAcross) container.scrollLeft -= this.currentPage * this.geometry.pageSize - this.acrossDistance(container);
      else container.scrollTop = this.currentPage * this.geometry.pageSize;
      return;
    }
    const offset = translationForPage(this.currentPage, this.geometry);
    const transform = this.geometry.axis === 'horizontal' ? `translateX(${offset}px)` : `translateY(${offset}px)`;
    this.document.documentElement.style.setProperty('transform', transform);
  }

  // Shows the page that holds a DOM point. Scrolled, the view moves so that the point's line
  // stands first on screen: a reader coming back to a place finds that line where it stood, not
  // somewhere down the screenful that holds it.
  showPoint(node: Node, offset: number, container?: HTMLElement): void {
    const rect = this.rectOfPoint(node, offset);
    const unplaced = rect.width === 0 && rect.height === 0;
    if (this.mode !== 'scrolled' || this.fixedLayout || container === undefined || unplaced) {
      this.showPage(this.pageOfRect(rect), container);
      return;
    }
    // Lines touch: rounded so that the line before stays off screen, as the locator counts it.
    if (this.scrollsAcross) {
      container.scrollLeft -= Math.max(0, Math.floor(this.acrossExtent - rect.right)) - this.acrossDistance(container);
    } else {
      container.scrollTop = Math.max(0, Math.ceil(rect.top));
    }
    this.syncScrolledPage(container);
  }

  // Whether the section scrolls sideways: scrolled, in vertical writing.
  get scrollsAcross(): boolean {
    return this.mode === 'scrolled' && this.acrossExtent > 0;
  }

  // How far a sideways-scrolled section has moved from its start, where its right edge meets the
  // container's. Measured on the frame itself: other frames in the stage widen the scroll range.
  private acrossDistance(container: HTMLElement): number {
    return Math.max(0, this.frame.getBoundingClientRect().right - container.getBoundingClientRect().right);
  }

  // In scrolled mode the page follows the container's scroll position.
  syncScrolledPage(container: HTMLElement): void {
    if (this.mode !== 'scrolled') return;
    const distance = this.scrollsAcross ? this.acrossDistance(container) : container.scrollTop;
    this.currentPage = clampPage(Math.floor((distance + 1) / this.geometry.pageSize), this.pageCount);
  }

  // Whether a scrolled section has moved away from its very start; paginated sections never have.
  isScrolledPastStart(container: HTMLElement): boolean {
    if (this.mode !== 'scrolled') return false;
    return this.scrollsAcross ? this.acrossDistance(container) > 1 : container.scrollTop > 0;
  }

  // The rectangle that is on screen, in the frame's own coordinates.
  private visibleBand(container: HTMLElement | undefined): { start: number; end: number } {
    if (this.scrollsAcross && container !== undefined) {
      // The page is the stretch of one page size at the container's right edge; what peeks in
      // beyond it on the left belongs to the next page.
      const end = container.getBoundingClientRect().right - this.frame.getBoundingClientRect().left;
      return { start: end - this.geometry.pageSize, end };
    }
    if (this.mode === 'scrolled') {
      const top = container?.scrollTop ?? 0;
      return { start: top, end: top + this.geometry.pageSize };
    }
    return { start: 0, end: this.geometry.pageSize };
  }

  private placementOfRect(rect: DOMRect, container: HTMLElement | undefined): CharacterPlacement {
    if (rect.width === 0 && rect.height === 0) return 'unplaced';
    const band = this.visibleBand(container);
    if (this.mode === 'scrolled' && !this.scrollsAcross) {
      // A line belongs to the screen when it stands on it by more than half, as showPoint places a
      // line at the top: glyphs of the line above may reach below its top without that line being
      // the first one read. The middle, not the top: the characters of one line stand a few pixels
      // apart (a raised letter, a larger word), and one line must fall on one side.
      if ((rect.top + rect.bottom) / 2 < band.start) return 'before';
      if (rect.top >= band.end) return 'after';
      return 'visible';
    }
    if (this.geometry.axis === 'vertical') {
      if (rect.bottom <= band.start) return 'before';
      if (rect.top >= band.end) return 'after';
      return 'visible';
    }
    if (this.scrollsAcross) {
      // Lines of a scrolled section don't break at page edges: a line belongs to the page that
      // holds its start (right) side, as pageOfRect counts it. Judged by the middle of each
      // character: the glyphs of one vertical line differ in width (smaller type, a bracket, a rotated
      // Latin letter), and the line that showPoint brought to the edge must not lose its wide ones.
      if ((rect.left + rect.right) / 2 > band.end) return 'before';
      if (rect.right <= band.start) return 'after';
      return 'visible';
    }
    if (this.geometry.progression === 'forward') {
      if (rect.right <= band.start) return 'before';
      if (rect.left >= band.end) return 'after';
      return 'visible';
    }
    if (rect.left >= band.end) return 'before';
    if (rect.right <= band.start) return 'after';
    return 'visible';
  }

  // The position in the section's text of the first character on screen.
  firstVisibleTextPosition(container?: HTMLElement): number | undefined {
    const index = this.text();
    const range = this.document.createRange();
    return firstVisiblePosition(index.text.length, (position) => {
      const point = index.pointAt(position);
      if (point === undefined || point.offset >= point.node.length) return 'unplaced';
      if (/\s/.test(point.node.data[point.offset] as string)) return 'unplaced';
      range.setStart(point.node, point.offset);
      range.setEnd(point.node, point.offset + 1);
      const rects = range.getClientRects();
      const rect = rects.length > 0 ? (rects[0] as DOMRect) : range.getBoundingClientRect();
      return this.placementOfRect(rect, container);
    });
  }

  // Whether the character at a DOM point (or the element after it) is on screen now.
  isPointOnScreen(node: Node, offset: number, container?: HTMLElement): boolean {
    if (this.fixedLayout) return true;
    return this.placementOfRect(this.rectOfPoint(node, offset), container) === 'visible';
  }

  // The page that shows a DOM point.
  pageOfPoint(node: Node, offset: number): number {
    return this.pageOfRect(this.rectOfPoint(node, offset));
  }

  // The box of the character at a DOM point, or of the element that follows it.
  private rectOfPoint(node: Node, offset: number): DOMRect {
    let rect: DOMRect;
    if (node.nodeType === Node.TEXT_NODE || node.nodeType === Node.CDATA_SECTION_NODE) {
      const range = this.document.createRange();
      const length = (node as CharacterData).length;
      range.setStart(node, Math.min(offset, length));
      range.setEnd(node, Math.min(offset + 1, length));
      const rects = range.getClientRects();
      rect = rects.length > 0 ? (rects[0] as DOMRect) : range.getBoundingClientRect();
    } else {
      const child = node.childNodes[offset];
      if (child !== undefined && child.nodeType === Node.ELEMENT_NODE) rect = (child as Element).getBoundingClientRect();
      else {
        const range = this.document.createRange();
        range.setStart(node, offset);
        rect = range.getBoundingClientRect();
      }
    }
    return rect;
  }

  private pageOfRect(rect: DOMRect): number {
    if (this.fixedLayout) return 0;
    if (this.scrollsAcross) {
      return clampPage(Math.floor((this.acrossExtent - rect.right) / this.geometry.pageSize), this.pageCount);
    }
    if (this.mode === 'scrolled') {
      return clampPage(Math.floor(rect.top / this.geometry.pageSize), this.pageCount);
    }
    // Undo the current translation to get the coordinate at page 0.
    const shift = translationForPage(this.currentPage, this.geometry);
    if (this.geometry.axis === 'vertical') return clampPage(pageForCoordinate(rect.top - shift, this.geometry), this.pageCount);
    if (this.geometry.progression === 'forward') return clampPage(pageForCoordinate(rect.left - shift, this.geometry), this.pageCount);
    return clampPage(pageForCoordinate(rect.right - shift, this.geometry, this.geometry.pageSize), this.pageCount);
  }
}

// Resolves once every style sheet that the document links has loaded or failed, or after
// `limitMilliseconds`.
function stylesheetsLoaded(doc: Document, limitMilliseconds: number): Promise<void> {
  const pending = [...doc.querySelectorAll('link')].filter(
    (link) => /(^|\s)stylesheet(\s|$)/i.test(link.rel) && link.sheet === null,
  );
  if (pending.length === 0) return Promise.resolve();
  const loads = pending.map(
    (link) =>
      new Promise<void>((resolve) => {
        link.addEventListener('load', () => resolve(), { once: true });
        link.addEventListener('error', () => resolve(), { once: true });
      }),
  );
  return Promise.race([Promise.all(loads).then(() => undefined), new Promise<void>((resolve) => setTimeout(resolve, limitMilliseconds))]);
}

// The next drawn frame, or a short while where frames are not drawn (a hidden view).
function nextFrame(): Promise<void> {
  return new Promise((resolve) => {
    const timer = setTimeout(resolve, 50);
    requestAnimationFrame(() => {
      clearTimeout(timer);
      resolve();
    });
  });
}
