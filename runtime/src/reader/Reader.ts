// The reader: the open publication, the section on screen, and what each bridge method does to them.
import { BridgeRequestError } from '../bridge/BridgeRequestError';
import type { GoToTarget } from '../bridge/decode';
import type {
  BookmarkVisibilityCandidate,
  ConfigurePageLayoutResult,
  ConfigureReadingModeResult,
  ConfigureScrolledContentWidthResult,
  ConfigureThemeResult,
  ConfigureTypographyRequest,
  ConfigureTypographyResult,
  Locator,
  OpenPublicationResult,
  PageLayout,
  PublicationDescriptor,
  ReaderPositionResult,
  ReadingMode,
  ReadingThemeSelection,
  ScrolledContentWidth,
  TableOfContentsItem,
  TextSelection,
} from '../bridge/records';
import type { CfiSpinePosition } from '../cfi/CfiDocument';
import { textSelectionForRange } from '../selection/SelectionRecord';
import { colorsForTheme, defaultPresentation, pageMarginPixels, type PresentationSettings } from '../layout/Presentation';
import { SectionView, type Viewport } from '../layout/SectionView';
import { applyPageChrome, applyScrollAxis } from '../layout/ViewportChrome';
import { SectionWeights } from '../locator/Progression';
import { containerRootURL, resolveURL, resourceKey, splitFragment } from '../publication/hrefs';
import type { PackageDocument, PageProgression, SpineItem } from '../publication/PackageDocument';
import type { ObfuscatedFonts } from '../publication/ObfuscatedFonts';
import type { BinaryLoader, BlobLoader, TextLoader } from '../publication/ResourceLoader';
import { readTableOfContents } from '../publication/TableOfContents';
import type { ReaderOperations } from './ReaderOperations';
import { BookmarkVisibility } from './BookmarkVisibility';
import { computedBodyMaxInlineSize, computedColors, computedTypography } from './ComputedPresentation';
import { isLocatorOnScreen, placeFragment, placeLocator, readerPosition, readersPlace, sectionOfLocator, sectionToShow, type BookPlaces, type SectionPlace } from './LocatorPlacement';
import { loadPublication, openResult, prepareSectionDocument } from './PublicationLoading';
import { SectionClickHandler } from './SectionClicks';
import { documentTextLength, weighSections } from './SectionWeighing';
import { SectionTexts, type SectionBatchLoader } from '../search/SectionBatchReading';

interface OpenState {
  descriptor: PublicationDescriptor;
  packageDocument: PackageDocument;
  weights: SectionWeights;
  tableOfContents: TableOfContentsItem[] | undefined;
  fonts: ObfuscatedFonts | undefined;
}

export interface ReaderEnvironment {
  loadText: TextLoader;
  // Reads many sections in one request; without it each is read alone.
  loadSectionBatch?: SectionBatchLoader;
  // A section's text length for the weighing after an open; without it its document is parsed.
  sectionLength?(spineIndex: number): Promise<number>;
  // Reads the book's obfuscated fonts; without it they are left as the book's CSS loads them.
  loadBinary?: BinaryLoader;
  // Reads the audio and video of a section for its media elements; without it they stay
  // as written, which the web view's media engine cannot play.
  loadBlob?: BlobLoader;
  viewport: HTMLElement;
  stage: HTMLElement;
  emitLocatorChanged(locator: Locator): void;
  // Sent when the set of bookmarks on the visible page changes after configureBookmarkVisibility.
  emitBookmarkVisibilityChanged?(visibleBookmarkIDs: string[]): void;
  // A section frame is loaded and laid out, and may be drawn in.
  sectionPrepared?(view: SectionView): void;
  // A section frame is about to go away.
  sectionReleased?(view: SectionView): void;
  // The reader moved, or laid the book out again.
  placementChanged?(): void;
  // Another publication is being opened; what belonged to the last one goes.
  publicationOpening?(): void;
  // A link of the book to one of its sections was clicked.
  emitLinkActivated?(url: string): void;
  // A click on a side of the page asks for a page turn.
  emitPageTurnRequested?(direction: 'next' | 'previous'): void;
}

export class Reader implements ReaderOperations {
  private readonly environment: ReaderEnvironment;
  // The sections' source texts, read once for the weighing at open and the searches that follow.
  private readonly sectionTexts: SectionTexts;
  private state: OpenState | undefined;
  private settings: PresentationSettings = { ...defaultPresentation };
  private requestedMode: ReadingMode = defaultPresentation.mode;
  private revision = 0;
  private current: SectionView | undefined;
  // The reader's anchor: the place they went to, or the first visible character when they last
  // turned a page or scrolled by hand. A relayout (type, spacing, margins, theme, mode, spread,
  // window size, late fonts) shows the page that holds it and keeps it, never the new page's
  // first character, so changes that end where they began give back the same page however many
  // there were. It is the place told to the native side, which saves it. Cleared while the
  // reader scrolls by hand; the end of that scroll takes the place on screen.
  private anchor: Locator | undefined;
  // Where the reader itself last put the viewport's scroll, so that the scroll events of its own
  // moves are not taken for the reader's.
  private ownScroll: { top: number; left: number; width: number; height: number } | undefined;
  private prepared = new Map<number, Promise<SectionView>>();
  private readonly loaded = new Set<SectionView>();
  private readonly bookmarks: BookmarkVisibility;
  // The way pages advance in the open book: the spine's, or the first section's direction; known
  // once that section is laid out.
  private progression: PageProgression | undefined;
  private readonly clicks: SectionClickHandler;

  constructor(environment: ReaderEnvironment) {
    this.environment = environment;
    this.sectionTexts = new SectionTexts(environment.loadText, environment.loadSectionBatch);
    this.bookmarks = new BookmarkVisibility(
      (locator) => this.isBookmarkOnScreen(locator),
      (visible) => this.environment.emitBookmarkVisibilityChanged?.(visible),
    );
    this.clicks = new SectionClickHandler({
      publicationRoot: () => (this.state === undefined ? undefined : containerRootURL(this.state.descriptor.packageURL)),
      spineIndexOf: (url) => (this.state === undefined ? undefined : this.spineIndexForURL(url)),
      pageProgression: () => this.progression ?? 'ltr',
      isPaginated: () => this.settings.mode === 'paginated',
      parsedSection: async (url) => {
        try {
          return new DOMParser().parseFromString(await this.sectionTexts.load(url), 'application/xhtml+xml');
        } catch {
          return undefined;
        }
      },
      themeColors: () => colorsForTheme(this.settings.theme, this.viewportMeasures().prefersDark),
      viewportBox: () => this.environment.viewport.getBoundingClientRect(),
      linkActivated: (url) => this.environment.emitLinkActivated?.(url),
      pageTurnRequested: (direction) => this.environment.emitPageTurnRequested?.(direction),
    });
  }

  // The source text of a section of the open book, read over the scheme at most once while it
  // stays in the cache.
  readonly loadSectionText: TextLoader = (url) => this.sectionTexts.load(url);

  // Starts reading the texts of these sections of the open book together into the cache.
  prefetchSectionTexts(items: readonly { url: string }[]): void {
    if (this.state !== undefined) this.sectionTexts.prefetch(containerRootURL(this.state.descriptor.packageURL), items.map((item) => item.url));
  }

  private opened(): OpenState {
    if (this.state === undefined) throw new BridgeRequestError('publication-not-open', 'no publication is open');
    return this.state;
  }

  private viewportMeasures(): Viewport {
    const width = this.environment.viewport.clientWidth || window.innerWidth;
    const height = this.environment.viewport.clientHeight || window.innerHeight;
    return {
      width,
      height,
      margin: pageMarginPixels(this.settings, width),
      prefersDark: window.matchMedia?.('(prefers-color-scheme: dark)').matches ?? false,
    };
  }

  async open(descriptor: PublicationDescriptor): Promise<OpenPublicationResult> {
    const { packageDocument, fonts } = await loadPublication(descriptor, this.environment.loadText, this.environment.loadBinary);
    this.closeSections();
    this.state = undefined;
    this.sectionTexts.clear();
    this.anchor = undefined;
    this.bookmarks.reset();
    this.environment.publicationOpening?.();
    this.state = { descriptor, packageDocument, weights: new SectionWeights(packageDocument.spine.length), tableOfContents: undefined, fonts };
    this.settings = { ...this.settings, mode: this.effectiveMode() };
    applyPageChrome(this.environment.viewport, this.settings, this.viewportMeasures());
    const first = this.linearIndices()[0] ?? 0;
    const declared = packageDocument.pageProgressionDirection;
    this.progression = declared === 'default' ? undefined : declared;
    const opened = this.state;
    const firstView = await this.display(first, () => 0);
    this.progression ??= firstView.contentProgression();
    // Weighed once the first page is shown, which it would otherwise compete with.
    const length = (item: SpineItem): Promise<number> => this.environment.sectionLength?.(item.index) ?? documentTextLength(this.loadSectionText, item.url);
    void weighSections(packageDocument.spine, opened.weights, { length, prefetch: (items) => this.prefetchSectionTexts(items) }, () => this.state === opened);
    return openResult(packageDocument, first, this.progression);
  }

  async tableOfContents(): Promise<TableOfContentsItem[]> {
    const state = this.opened();
    if (state.tableOfContents !== undefined) return state.tableOfContents;
    const items = await readTableOfContents(state.packageDocument, state.descriptor.resourceBaseURL, (url) => this.environment.loadText(url));
    state.tableOfContents = items;
    return items;
  }

  // Spine indices in reading order; non-linear items are left out unless every item is.
  private linearIndices(): number[] {
    const spine = this.opened().packageDocument.spine;
    const linear = spine.filter((item) => item.linear).map((item) => item.index);
    return linear.length > 0 ? linear : spine.map((item) => item.index);
  }

  private closeSections(): void {
    if (this.current !== undefined) this.release(this.current);
    this.current = undefined;
    for (const pending of this.prepared.values()) void pending.then((view) => this.release(view), () => undefined);
    this.prepared.clear();
  }

  private release(view: SectionView): void {
    if (this.loaded.delete(view)) this.environment.sectionReleased?.(view);
    view.remove();
  }

  private prepare(spineIndex: number): Promise<SectionView> {
    const existing = this.prepared.get(spineIndex);
    if (existing !== undefined) return existing;
    const item = this.opened().packageDocument.spine[spineIndex];
    if (item === undefined) return Promise.reject(new BridgeRequestError('section-not-found', `no spine item ${spineIndex}`));
    const view = new SectionView(spineIndex, item.layout === 'pre-paginated', this.progression);
    const fonts = this.opened().fonts;
    const loading = view
      .load(item.url, this.environment.stage)
      .then(async () => {
        this.clicks.attach(view.document, view.frame, item.url);
        await prepareSectionDocument(view, item, this.opened().packageDocument, this.opened().descriptor, this.environment.loadBlob);
        // Restored fonts are in place before the first layout, so that it measures with them.
        await fonts?.register(view.document);
        view.layout(this.settings, this.viewportMeasures());
        // The book's own fonts load once the laid-out text asks for them, and change the pages.
        if (await view.fontsSettled()) view.layout(this.settings, this.viewportMeasures());
        if (await view.sizeSettled()) view.layout(this.settings, this.viewportMeasures());
        view.onLateFonts(() => {
          if (this.loaded.has(view)) this.handleResize();
        });
        view.onContentResize(() => {
          if (this.loaded.has(view)) this.handleResize();
        });
        // Settings or a window size that changed while the section loaded are not waited for by
        // the relayout they caused (see relayout): the section takes them here.
        if (!view.isLaidOutFor(this.settings, this.viewportMeasures())) view.layout(this.settings, this.viewportMeasures());
        // A frame that was let go while it loaded is not announced.
        if (this.prepared.get(spineIndex) === loading) {
          this.loaded.add(view);
          this.environment.sectionPrepared?.(view);
        }
        return view;
      })
      .catch((error: unknown) => {
        if (this.prepared.get(spineIndex) === loading) this.prepared.delete(spineIndex);
        this.release(view);
        throw new BridgeRequestError('section-load-failed', 'a section of the book could not be loaded', String(error));
      });
    this.prepared.set(spineIndex, loading);
    return loading;
  }

  // Shows a section at the place that `choosePlace` picks once it is laid out (a page, or a point
  // whose page is shown), and prepares the next.
  private async display(spineIndex: number, choosePlace: (view: SectionView) => number | SectionPlace): Promise<SectionView> {
    const view = await this.prepare(spineIndex);
    if (this.current !== view) {
      this.current?.show(false);
      this.current = view;
    }
    // Shown first: a frame still preparing stands outside the scroll range that the place needs.
    view.show(true);
    applyScrollAxis(this.environment.viewport, view);
    this.showPlace(view, choosePlace(view));
    this.trimPrepared(spineIndex);
    const order = this.linearIndices();
    const next = order[order.indexOf(spineIndex) + 1];
    if (next !== undefined) void this.prepare(next).catch(() => undefined);
    return view;
  }

  private showPlace(view: SectionView, place: number | SectionPlace): void {
    this.clicks.dismiss();
    const viewport = this.environment.viewport;
    if (typeof place === 'number') view.showPage(place, viewport);
    else if (place.point !== undefined) view.showPoint(place.point.node, place.point.offset, viewport);
    else view.showPage(place.page, viewport);
    this.ownScroll = { top: viewport.scrollTop, left: viewport.scrollLeft, width: viewport.clientWidth, height: viewport.clientHeight };
  }

  // Keeps the current section and its neighbours; other frames are released.
  private trimPrepared(spineIndex: number): void {
    for (const [index, pending] of this.prepared) {
      if (Math.abs(index - spineIndex) > 1) {
        this.prepared.delete(index);
        void pending.then((view) => {
          if (view !== this.current) this.release(view);
        }, () => undefined);
      }
    }
  }

  private position(locatorResolution?: string): ReaderPositionResult {
    const view = this.current;
    if (view === undefined) throw new BridgeRequestError('publication-not-open', 'no section is shown');
    return readerPosition(view, this.linearIndices(), this.environment.viewport, locatorResolution);
  }

  // After a move of the reader's: `target` becomes the anchor when the move went to a stored place
  // that resolved by its CFI, which a relayout finds again exactly; else the place on screen does.
  private async afterMove(locatorResolution?: string, target?: Locator): Promise<ReaderPositionResult> {
    const result = this.position(locatorResolution);
    this.anchor = locatorResolution === 'cfi' || locatorResolution === 'cfi-text-assertion' ? target : undefined;
    await this.takePlaceOnScreen();
    this.announcePlacement();
    return result;
  }

  // Everything that follows the page on screen: highlights' overlays, the selection and the
  // bookmarks on the page.
  private announcePlacement(): void {
    this.environment.placementChanged?.();
    this.refreshBookmarkVisibility();
  }

  private neighbour(step: 1 | -1): number | undefined {
    const view = this.current;
    if (view === undefined) return undefined;
    const order = this.linearIndices();
    const position = order.indexOf(view.spineIndex);
    // A non-linear section that was reached by a link goes on to the nearest linear one.
    if (position < 0) return order.find((index) => (step > 0 ? index > view.spineIndex : index < view.spineIndex));
    return order[position + step];
  }

  async next(): Promise<ReaderPositionResult> {
    const view = this.current;
    if (view === undefined) throw new BridgeRequestError('publication-not-open', 'no section is shown');
    view.syncScrolledPage(this.environment.viewport);
    if (view.page < view.pageCount - 1) {
      view.showPage(view.page + 1, this.environment.viewport);
      return this.afterMove();
    }
    const next = this.neighbour(1);
    if (next === undefined) return this.position();
    await this.display(next, () => 0);
    return this.afterMove();
  }

  async previous(): Promise<ReaderPositionResult> {
    const view = this.current;
    if (view === undefined) throw new BridgeRequestError('publication-not-open', 'no section is shown');
    view.syncScrolledPage(this.environment.viewport);
    if (view.page > 0) {
      view.showPage(view.page - 1, this.environment.viewport);
      return this.afterMove();
    }
    const previous = this.neighbour(-1);
    if (previous === undefined) return this.position();
    await this.display(previous, (shown) => shown.pageCount - 1);
    return this.afterMove();
  }

  async nextSection(): Promise<ReaderPositionResult> {
    const next = this.neighbour(1);
    if (next === undefined) return this.position();
    await this.display(next, () => 0);
    return this.afterMove();
  }

  async previousSection(): Promise<ReaderPositionResult> {
    const previous = this.neighbour(-1);
    if (previous === undefined) {
      this.current?.showPage(0, this.environment.viewport);
      return this.afterMove();
    }
    await this.display(previous, () => 0);
    return this.afterMove();
  }

  private spineIndexForURL(url: string): number | undefined {
    const key = resourceKey(url);
    return this.opened().packageDocument.spine.find((item) => resourceKey(item.url) === key)?.index;
  }

  async goTo(target: GoToTarget): Promise<ReaderPositionResult> {
    if (target.kind === 'href') return this.goToHref(target.href);
    return this.goToLocator(target.locator);
  }

  private async goToHref(href: string): Promise<ReaderPositionResult> {
    const state = this.opened();
    let absolute: string;
    try {
      absolute = resolveURL(href, state.descriptor.resourceBaseURL);
    } catch {
      throw new BridgeRequestError('href-not-found', 'the link is not a valid reference', href);
    }
    const { resource, fragment } = splitFragment(absolute);
    const spineIndex = this.spineIndexForURL(resource);
    if (spineIndex === undefined) throw new BridgeRequestError('href-not-found', 'the link leads to no section of the book', href);
    await this.display(spineIndex, (view) => placeFragment(view, fragment));
    return this.afterMove();
  }

  // What placement needs of the open book.
  private places(): BookPlaces {
    const state = this.opened();
    return {
      spine: state.packageDocument.spine,
      resourceBaseURL: state.descriptor.resourceBaseURL,
      weights: state.weights,
      spineIndexForURL: (url) => this.spineIndexForURL(url),
    };
  }

  private async goToLocator(locator: Locator): Promise<ReaderPositionResult> {
    const places = this.places();
    const { spineIndex, fromTotalProgression } = sectionToShow(locator, places, this.linearIndices()[0] ?? 0);
    let resolution = 'section-start';
    await this.display(spineIndex, (view) => {
      const placed = placeLocator(view, locator, fromTotalProgression, places.weights);
      resolution = placed.resolution;
      return placed;
    });
    return this.afterMove(resolution, locator);
  }

  private spinePosition(item: SpineItem) {
    return { spineCfiStep: this.opened().packageDocument.spineCfiStep, itemCfiStep: item.cfiStep, idref: item.idref };
  }

  // The reader's place (see readersPlace), which the native side shows, saves and goes back to.
  async currentLocator(): Promise<Locator> {
    const view = this.current;
    if (view === undefined) throw new BridgeRequestError('publication-not-open', 'no section is shown');
    const item = this.opened().packageDocument.spine[view.spineIndex] as SpineItem;
    return readersPlace(this.anchor, view, item, this.spinePosition(item), this.places(), this.environment.viewport, this.linearIndices()[0] ?? 0);
  }

  // The selection in the section on screen. Its length is not limited here: the callout shows for
  // any selection, and addAnnotation refuses one that is too long.
  async currentSelection(): Promise<TextSelection | undefined> {
    const state = this.opened();
    const view = this.current;
    if (view === undefined) return undefined;
    const selection = view.document.getSelection();
    if (selection === null || selection.rangeCount === 0 || selection.isCollapsed) return undefined;
    const item = state.packageDocument.spine[view.spineIndex] as SpineItem;
    return textSelectionForRange(selection.getRangeAt(0), view.text(), {
      spineHref: item.href,
      spineIndex: item.index,
      cfiSpine: this.spinePosition(item),
      totalProgression: (progression) => state.weights.totalProgression(item.index, progression),
    });
  }

  // Lays every prepared section out again and shows the page that holds the anchor.
  private async relayout(): Promise<void> {
    applyPageChrome(this.environment.viewport, this.settings, this.viewportMeasures());
    const view = this.current;
    if (this.state === undefined || view === undefined) return;
    let anchor = this.anchor;
    if (anchor === undefined || this.spineIndexOf(anchor) !== view.spineIndex) anchor = await this.currentLocator();
    // Sections still loading lay themselves out for the settings of when they finish.
    for (const prepared of this.loaded) {
      if (prepared !== view) prepared.layout(this.settings, this.viewportMeasures());
    }
    view.layout(this.settings, this.viewportMeasures());
    applyScrollAxis(this.environment.viewport, view);
    this.showPlace(view, placeLocator(view, anchor, false, this.state.weights));
    this.anchor = anchor;
    this.environment.emitLocatorChanged(anchor);
    this.announcePlacement();
  }

  // Takes the reader's place (see readersPlace) as the anchor, and tells it.
  private async takePlaceOnScreen(): Promise<Locator> {
    const locator = await this.currentLocator();
    this.anchor = locator;
    this.environment.emitLocatorChanged(locator);
    return locator;
  }

  // A scroll of the viewport began. Unless it is the reader's own (a move or a relayout put the
  // viewport there) or the browser's (a new window size moved the text under a relayout still to
  // come), the reader is scrolling by hand: until the scroll ends, the place is what the screen
  // shows.
  unsettle(): void {
    const viewport = this.environment.viewport;
    const own = this.ownScroll;
    if (own !== undefined && own.top === viewport.scrollTop && own.left === viewport.scrollLeft) return;
    if (own !== undefined && (own.width !== viewport.clientWidth || own.height !== viewport.clientHeight)) return;
    this.ownScroll = undefined;
    this.anchor = undefined;
  }

  // A scroll ended: after a scroll by hand, the place on screen becomes the anchor.
  async settle(): Promise<void> {
    if (this.anchor === undefined && this.current !== undefined) await this.takePlaceOnScreen();
  }

  handleResize(): void {
    void this.relayout().catch(() => undefined);
  }

  async configureTypography(request: ConfigureTypographyRequest): Promise<ConfigureTypographyResult> {
    this.settings = { ...this.settings, typography: request };
    await this.relayout();
    this.revision += 1;
    return {
      applied: this.current !== undefined,
      configurationRevision: this.revision,
      ...computedTypography(this.current?.document, this.environment.viewport),
    };
  }

  async configureTheme(theme: ReadingThemeSelection): Promise<ConfigureThemeResult> {
    this.settings = { ...this.settings, theme };
    await this.relayout();
    this.revision += 1;
    return { configurationRevision: this.revision, ...computedColors(this.current?.document) };
  }

  // The mode asked for, but pre-paginated books have no scrolled form: they stay paginated.
  private effectiveMode(): ReadingMode {
    return this.state?.packageDocument.layout === 'pre-paginated' ? 'paginated' : this.requestedMode;
  }

  async configureReadingMode(mode: ReadingMode): Promise<ConfigureReadingModeResult> {
    this.requestedMode = mode;
    const effectiveMode = this.effectiveMode();
    this.settings = { ...this.settings, mode: effectiveMode };
    await this.relayout();
    this.revision += 1;
    return {
      requestedMode: mode,
      effectiveMode,
      computedContainerOverflow: getComputedStyle(this.environment.viewport).overflow,
      configurationRevision: this.revision,
    };
  }

  async configurePageLayout(layout: PageLayout): Promise<ConfigurePageLayoutResult> {
    this.settings = { ...this.settings, layout };
    await this.relayout();
    this.revision += 1;
    return {
      requestedLayout: layout,
      effectiveColumnCount: this.current?.columnCount ?? 1,
      computedContainerOverflow: getComputedStyle(this.environment.viewport).overflow,
      configurationRevision: this.revision,
    };
  }

  async configureScrolledContentWidth(preset: ScrolledContentWidth, maxInlineSize: number): Promise<ConfigureScrolledContentWidthResult> {
    this.settings = { ...this.settings, scrolledWidth: preset, scrolledMaxInlineSize: maxInlineSize };
    await this.relayout();
    this.revision += 1;
    const result: ConfigureScrolledContentWidthResult = { preset, configurationRevision: this.revision };
    const bodyMaxInlineSize = computedBodyMaxInlineSize(this.current?.document);
    if (bodyMaxInlineSize !== undefined) result.computedBodyMaxInlineSize = bodyMaxInlineSize;
    return result;
  }

  // Keeps the candidates and answers those whose position lies on the page (or spread) on screen;
  // from then on a change of that set after a move is sent as an event.
  async configureBookmarkVisibility(candidates: BookmarkVisibilityCandidate[]): Promise<string[]> {
    return this.bookmarks.configure(candidates);
  }

  // Called after every move and relayout, and when the reader scrolls.
  refreshBookmarkVisibility(): void {
    this.bookmarks.refresh();
  }

  private isBookmarkOnScreen(locator: Locator): boolean {
    const view = this.current;
    if (this.state === undefined || view === undefined) return false;
    view.syncScrolledPage(this.environment.viewport);
    return isLocatorOnScreen(locator, view, this.places(), this.environment.viewport, this.linearIndices()[0] ?? 0);
  }

  // What the highlights and the search read of the reader.

  get currentSection(): SectionView | undefined {
    return this.current;
  }

  loadedSections(): SectionView[] {
    return [...this.loaded];
  }

  get packageDocument(): PackageDocument | undefined {
    return this.state?.packageDocument;
  }

  spinePositionOf(spineIndex: number): CfiSpinePosition | undefined {
    const item = this.state?.packageDocument.spine[spineIndex];
    return item === undefined ? undefined : this.spinePosition(item);
  }

  totalProgression(spineIndex: number, sectionProgression: number): number {
    return this.state?.weights.totalProgression(spineIndex, sectionProgression) ?? 0;
  }

  // The section a stored locator belongs to, by href or index; none when neither names one.
  spineIndexOf(locator: Locator): number | undefined {
    return this.state === undefined ? undefined : sectionOfLocator(locator, this.places());
  }
}
