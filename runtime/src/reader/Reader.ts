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
import { cfiForPoint, resolveCfiPoint, type CfiSpinePosition, type DomPoint } from '../cfi/CfiDocument';
import { textSelectionForRange } from '../selection/SelectionRecord';
import { colorsForTheme, defaultPresentation, pageMarginPixels, type PresentationSettings } from '../layout/Presentation';
import { SectionView, type Viewport } from '../layout/SectionView';
import { pageForProgression } from '../layout/PageGeometry';
import { excerptAt, findExcerpt } from '../locator/Excerpt';
import { SectionWeights, clampUnit } from '../locator/Progression';
import { resolveURL, resourceKey, splitFragment } from '../publication/hrefs';
import { parsePackageDocument, type PackageDocument, type PageProgression, type SpineItem } from '../publication/PackageDocument';
import { applyImageFallbacks } from '../publication/ImageFallbacks';
import { ObfuscatedFonts } from '../publication/ObfuscatedFonts';
import { attachMediaSources } from '../publication/MediaSources';
import { TextCache, type BinaryLoader, type BlobLoader, type TextLoader } from '../publication/ResourceLoader';
import { parseNavigationDocument, parseNCX } from '../publication/TableOfContents';
import type { ReaderOperations } from './ReaderOperations';
import { SectionClickHandler } from './SectionClicks';
import { insertSkippedItemNotice } from './SkippedItemNotice';

// Where to show a section: a page, and the point whose line should stand first when it scrolls.
interface SectionPlace {
  page: number;
  point?: DomPoint;
}

interface OpenState {
  descriptor: PublicationDescriptor;
  packageDocument: PackageDocument;
  weights: SectionWeights;
  tableOfContents: TableOfContentsItem[] | undefined;
  fonts: ObfuscatedFonts | undefined;
}

// The root of the container that holds the package: the publication's own directory on the
// scheme, whose first path segment is the publication's id.
function containerRootURL(packageURL: string): string {
  const url = new URL(packageURL);
  const firstSegment = url.pathname.split('/')[1] ?? '';
  return `${url.protocol}//${url.host}/${firstSegment}/`;
}

export interface ReaderEnvironment {
  loadText: TextLoader;
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
  private readonly sectionTexts: TextCache;
  private state: OpenState | undefined;
  private settings: PresentationSettings = { ...defaultPresentation };
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
  private bookmarkCandidates: BookmarkVisibilityCandidate[] = [];
  private visibleBookmarks: string[] | undefined;
  // The way pages advance in the open book: the spine's, or the first section's direction; known
  // once that section is laid out.
  private progression: PageProgression | undefined;
  private readonly clicks: SectionClickHandler;

  constructor(environment: ReaderEnvironment) {
    this.environment = environment;
    this.sectionTexts = new TextCache(environment.loadText);
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
    let packageText: string;
    try {
      packageText = await this.environment.loadText(descriptor.packageURL);
    } catch (error) {
      throw new BridgeRequestError('package-unreadable', 'the package document could not be read', String(error));
    }
    let packageDocument: PackageDocument;
    try {
      packageDocument = parsePackageDocument(packageText, descriptor.packageURL, descriptor.resourceBaseURL);
    } catch (error) {
      throw new BridgeRequestError('package-invalid', 'the package document could not be parsed', String(error));
    }
    let fonts: ObfuscatedFonts | undefined;
    if (this.environment.loadBinary !== undefined) {
      const identifiers = { uniqueIdentifier: packageDocument.uniqueIdentifierText, identifiers: packageDocument.identifiers };
      fonts = await ObfuscatedFonts.load(containerRootURL(descriptor.packageURL), identifiers, this.environment.loadText, this.environment.loadBinary);
    }
    this.closeSections();
    this.state = undefined;
    this.sectionTexts.clear();
    this.anchor = undefined;
    this.bookmarkCandidates = [];
    this.visibleBookmarks = undefined;
    this.environment.publicationOpening?.();
    this.state = { descriptor, packageDocument, weights: new SectionWeights(packageDocument.spine.length), tableOfContents: undefined, fonts };
    this.applyPageChrome();
    void this.measureSectionLengths(this.state);
    const first = this.linearIndices()[0] ?? 0;
    const declared = packageDocument.pageProgressionDirection;
    this.progression = declared === 'default' ? undefined : declared;
    const firstView = await this.display(first, () => 0);
    this.progression ??= pageProgressionOf(firstView);
    const result: OpenPublicationResult = {
      authors: packageDocument.creators,
      spineItemCount: packageDocument.spine.length,
      initialResourceURL: (packageDocument.spine[first] as SpineItem).url,
      pageProgressionDirection: this.progression,
    };
    if (packageDocument.title !== undefined) result.title = packageDocument.title;
    if (packageDocument.titleDirection !== undefined) result.titleDirection = packageDocument.titleDirection;
    if (packageDocument.creatorsDirection !== undefined) result.authorsDirection = packageDocument.creatorsDirection;
    if (packageDocument.coverURL !== undefined) result.coverResourceURL = packageDocument.coverURL;
    return result;
  }

  // Reads every section's text in the background to weigh the book's progression.
  private async measureSectionLengths(state: OpenState): Promise<void> {
    for (const item of state.packageDocument.spine) {
      if (this.state !== state) return;
      try {
        const text = await this.sectionTexts.load(item.url);
        const parsed = new DOMParser().parseFromString(text, 'application/xhtml+xml');
        state.weights.setLength(item.index, (parsed.body ?? parsed.documentElement)?.textContent?.length ?? text.length);
      } catch {
        // A section that can't be read keeps the estimated weight.
      }
    }
  }

  async tableOfContents(): Promise<TableOfContentsItem[]> {
    const state = this.opened();
    if (state.tableOfContents !== undefined) return state.tableOfContents;
    const { navigationDocumentURL, ncxURL } = state.packageDocument;
    const base = state.descriptor.resourceBaseURL;
    let items: TableOfContentsItem[] = [];
    try {
      if (navigationDocumentURL !== undefined) {
        items = parseNavigationDocument(await this.environment.loadText(navigationDocumentURL), navigationDocumentURL, base);
      } else if (ncxURL !== undefined) {
        items = parseNCX(await this.environment.loadText(ncxURL), ncxURL, base);
      }
    } catch (error) {
      if (ncxURL === undefined || navigationDocumentURL === undefined) {
        throw new BridgeRequestError('table-of-contents-unreadable', 'the table of contents could not be read', String(error));
      }
      items = parseNCX(await this.environment.loadText(ncxURL), ncxURL, base);
    }
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
        const packageDocument = this.opened().packageDocument;
        await applyImageFallbacks(view.document, item.url, packageDocument.imageFallbacks);
        if (!view.fixedLayout) {
          insertSkippedItemNotice(view.document, item.skippedBefore, 'start');
          if (spineIndex === packageDocument.spine.length - 1) insertSkippedItemNotice(view.document, packageDocument.skippedAtEnd, 'end');
        }
        const loadBlob = this.environment.loadBlob;
        if (loadBlob !== undefined) {
          // Not awaited: the text shows while the media is read.
          void attachMediaSources(view.document, item.url, containerRootURL(this.opened().descriptor.packageURL), loadBlob);
        }
        // Restored fonts are in place before the first layout, so that it measures with them.
        await fonts?.register(view.document);
        view.layout(this.settings, this.viewportMeasures());
        // The book's own fonts load once the laid-out text asks for them, and change the pages.
        if (await view.fontsSettled()) view.layout(this.settings, this.viewportMeasures());
        view.onLateFonts(() => {
          if (this.loaded.has(view)) this.handleResize();
        });
        view.onContentResize(() => {
          if (this.loaded.has(view)) this.handleResize();
        });
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
    this.applyScrollAxis(view);
    this.showPlace(view, choosePlace(view));
    view.show(true);
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
    view.syncScrolledPage(this.environment.viewport);
    const order = this.linearIndices();
    const atFirstSection = view.spineIndex === order[0];
    const atLastSection = view.spineIndex === order[order.length - 1];
    const result: ReaderPositionResult = {
      spineIndex: view.spineIndex,
      page: view.page + 1,
      pageCount: view.pageCount,
      atStart: atFirstSection && view.page === 0,
      atEnd: atLastSection && view.page === view.pageCount - 1,
    };
    if (locatorResolution !== undefined) result.locatorResolution = locatorResolution;
    return result;
  }

  // After a move of the reader's: the place on screen becomes the anchor, or `target` when the
  // move went to a stored place that resolved by its CFI, which a relayout finds again exactly.
  private async afterMove(locatorResolution?: string, target?: Locator): Promise<ReaderPositionResult> {
    const result = this.position(locatorResolution);
    await this.takePlaceOnScreen();
    if (target !== undefined && (locatorResolution === 'cfi' || locatorResolution === 'cfi-text-assertion')) this.anchor = target;
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
    await this.display(spineIndex, (view) => {
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
    });
    return this.afterMove();
  }

  private spineIndexForLocator(locator: Locator): { spineIndex: number; fromTotalProgression: boolean } {
    const state = this.opened();
    const spine = state.packageDocument.spine;
    try {
      const byHref = this.spineIndexForURL(resolveURL(locator.spineHref, state.descriptor.resourceBaseURL));
      if (byHref !== undefined) return { spineIndex: byHref, fromTotalProgression: false };
    } catch {
      // An href that is not a URL falls back to the index.
    }
    if (Number.isInteger(locator.spineIndex) && locator.spineIndex >= 0 && locator.spineIndex < spine.length) {
      return { spineIndex: locator.spineIndex, fromTotalProgression: false };
    }
    if (locator.totalProgression !== undefined) {
      return { spineIndex: state.weights.locate(locator.totalProgression).spineIndex, fromTotalProgression: true };
    }
    return { spineIndex: this.linearIndices()[0] ?? 0, fromTotalProgression: true };
  }

  private async goToLocator(locator: Locator): Promise<ReaderPositionResult> {
    const state = this.opened();
    const { spineIndex, fromTotalProgression } = this.spineIndexForLocator(locator);
    let resolution = 'section-start';
    await this.display(spineIndex, (view) => {
      const placed = this.placeLocator(view, locator, fromTotalProgression, state);
      resolution = placed.resolution;
      return placed;
    });
    return this.afterMove(resolution, locator);
  }

  // Finds the page of a locator in a laid-out section, trying the CFI, then the excerpt near the
  // progression, then the progression, then the section start.
  private placeLocator(
    view: SectionView,
    locator: Locator,
    fromTotalProgression: boolean,
    state: OpenState,
  ): SectionPlace & { resolution: string } {
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
      progression = state.weights.locate(locator.totalProgression).sectionProgression;
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

  private spinePosition(item: SpineItem) {
    return { spineCfiStep: this.opened().packageDocument.spineCfiStep, itemCfiStep: item.cfiStep, idref: item.idref };
  }

  async currentLocator(): Promise<Locator> {
    const state = this.opened();
    const view = this.current;
    if (view === undefined) throw new BridgeRequestError('publication-not-open', 'no section is shown');
    const item = state.packageDocument.spine[view.spineIndex] as SpineItem;
    view.syncScrolledPage(this.environment.viewport);
    const locator: Locator = { spineHref: item.href, spineIndex: item.index };
    const index = view.text();
    const position = view.firstVisibleTextPosition(this.environment.viewport);
    let sectionProgression: number;
    if (position !== undefined && index.text.length > 0) {
      const point = index.pointAt(position);
      if (point !== undefined) locator.cfi = cfiForPoint(point as DomPoint, this.spinePosition(item), index);
      sectionProgression = position / index.text.length;
      const excerpt = excerptAt(index.text, position);
      if (excerpt !== undefined) locator.excerpt = excerpt;
    } else {
      sectionProgression = view.pageCount <= 1 ? 0 : view.page / view.pageCount;
    }
    // The first page of a section is its start, whatever unseen text (white space, hidden
    // elements) comes before its first visible character.
    if (view.page === 0 && !view.isScrolledPastStart(this.environment.viewport)) sectionProgression = 0;
    locator.sectionProgression = clampUnit(sectionProgression);
    locator.totalProgression = state.weights.totalProgression(item.index, locator.sectionProgression);
    return locator;
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
    this.applyPageChrome();
    const view = this.current;
    if (this.state === undefined || view === undefined) return;
    let anchor = this.anchor;
    if (anchor === undefined || this.spineIndexOf(anchor) !== view.spineIndex) anchor = await this.currentLocator();
    for (const [, pending] of this.prepared) {
      const prepared = await pending.catch(() => undefined);
      if (prepared !== undefined && prepared !== view) prepared.layout(this.settings, this.viewportMeasures());
    }
    view.layout(this.settings, this.viewportMeasures());
    this.applyScrollAxis(view);
    this.showPlace(view, this.placeLocator(view, anchor, false, this.state));
    this.anchor = anchor;
    this.environment.emitLocatorChanged(anchor);
    this.announcePlacement();
  }

  // Takes the place on screen as the reader's anchor and tells it.
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

  // A scrolled section in vertical writing scrolls sideways, others up and down.
  private applyScrollAxis(view: SectionView): void {
    const viewport = this.environment.viewport;
    viewport.classList.toggle('scrolled-across', view.scrollsAcross);
    // Whatever the other axis scrolled is left behind.
    if (view.scrollsAcross) viewport.scrollTop = 0;
    else viewport.scrollLeft = 0;
  }

  // The runtime page itself: theme colours and the scrolled class of the viewport.
  private applyPageChrome(): void {
    const colors = colorsForTheme(this.settings.theme, this.viewportMeasures().prefersDark);
    const body = document.body;
    body.style.setProperty('--reader-background', colors.background);
    body.style.setProperty('--reader-foreground', colors.foreground);
    this.environment.viewport.classList.toggle('scrolled', this.settings.mode === 'scrolled');
    const margin = pageMarginPixels(this.settings, this.viewportMeasures().width);
    this.environment.viewport.style.setProperty('padding-inline-start', `${margin}px`);
  }

  private sectionStyles(): { root: CSSStyleDeclaration; body: CSSStyleDeclaration; document: Document } | undefined {
    const view = this.current;
    if (view === undefined) return undefined;
    const doc = view.document;
    const win = doc.defaultView;
    if (win === null || doc.body === null) return undefined;
    return { root: win.getComputedStyle(doc.documentElement), body: win.getComputedStyle(doc.body), document: doc };
  }

  async configureTypography(request: ConfigureTypographyRequest): Promise<ConfigureTypographyResult> {
    this.settings = { ...this.settings, typography: request };
    await this.relayout();
    this.revision += 1;
    const result: ConfigureTypographyResult = { applied: this.current !== undefined, configurationRevision: this.revision };
    const styles = this.sectionStyles();
    const pixels = (value: string | undefined): number | undefined => {
      const parsed = value === undefined ? Number.NaN : Number.parseFloat(value);
      return Number.isFinite(parsed) ? parsed : undefined;
    };
    const paddingStart = pixels(getComputedStyle(this.environment.viewport).paddingInlineStart);
    if (paddingStart !== undefined) result.computedRootPaddingInlineStart = paddingStart;
    if (styles === undefined) return result;
    const view = styles.document.defaultView as Window;
    const paragraph = styles.document.body?.querySelector('p');
    const paragraphStyle = paragraph ? view.getComputedStyle(paragraph) : styles.body;
    const code = styles.document.body?.querySelector('code, pre, kbd, samp');
    const assign = <K extends keyof ConfigureTypographyResult>(key: K, value: ConfigureTypographyResult[K] | undefined) => {
      if (value !== undefined) result[key] = value;
    };
    assign('computedRootFontSize', pixels(styles.root.fontSize));
    assign('computedBodyFontFamily', styles.body.fontFamily || undefined);
    assign('computedBodyFontSize', pixels(styles.body.fontSize));
    assign('computedParagraphLineHeight', pixels(paragraphStyle.lineHeight));
    assign('computedParagraphLetterSpacing', paragraphStyle.letterSpacing || undefined);
    assign('computedCodeLetterSpacing', code ? view.getComputedStyle(code).letterSpacing || undefined : undefined);
    assign('computedSemanticIndent', pixels(paragraphStyle.textIndent));
    return result;
  }

  async configureTheme(theme: ReadingThemeSelection): Promise<ConfigureThemeResult> {
    this.settings = { ...this.settings, theme };
    await this.relayout();
    this.revision += 1;
    const result: ConfigureThemeResult = { configurationRevision: this.revision };
    const styles = this.sectionStyles();
    if (styles !== undefined) {
      result.computedBodyColor = styles.body.color;
      result.computedBodyBackgroundColor = styles.root.backgroundColor;
    } else {
      const page = getComputedStyle(document.body);
      result.computedBodyColor = page.color;
      result.computedBodyBackgroundColor = page.backgroundColor;
    }
    return result;
  }

  // Pre-paginated books have no scrolled form; they stay paginated whatever is asked.
  private isFixedLayout(): boolean {
    return this.state?.packageDocument.layout === 'pre-paginated';
  }

  async configureReadingMode(mode: ReadingMode): Promise<ConfigureReadingModeResult> {
    const effectiveMode: ReadingMode = this.isFixedLayout() ? 'paginated' : mode;
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
    const styles = this.sectionStyles();
    const value = styles === undefined ? Number.NaN : Number.parseFloat(styles.body.maxInlineSize);
    if (Number.isFinite(value)) result.computedBodyMaxInlineSize = value;
    return result;
  }

  // Keeps the candidates and answers those whose position lies on the page (or spread) on screen;
  // from then on a change of that set after a move is sent as an event.
  async configureBookmarkVisibility(candidates: BookmarkVisibilityCandidate[]): Promise<string[]> {
    this.bookmarkCandidates = candidates;
    const visible = this.bookmarksOnScreen();
    this.visibleBookmarks = visible;
    return visible;
  }

  // Called after every move and relayout, and when the reader scrolls.
  refreshBookmarkVisibility(): void {
    if (this.visibleBookmarks === undefined) return;
    const visible = this.bookmarksOnScreen();
    if (sameMembers(visible, this.visibleBookmarks)) return;
    this.visibleBookmarks = visible;
    this.environment.emitBookmarkVisibilityChanged?.(visible);
  }

  private bookmarksOnScreen(): string[] {
    const view = this.current;
    if (this.state === undefined || view === undefined) return [];
    view.syncScrolledPage(this.environment.viewport);
    const visible: string[] = [];
    for (const candidate of this.bookmarkCandidates) {
      if (this.isLocatorOnScreen(candidate.locator, view, this.state)) visible.push(candidate.id);
    }
    return visible;
  }

  private isLocatorOnScreen(locator: Locator, view: SectionView, state: OpenState): boolean {
    const { spineIndex, fromTotalProgression } = this.spineIndexForLocator(locator);
    if (spineIndex !== view.spineIndex) return false;
    const placed = this.placeLocator(view, locator, fromTotalProgression, state);
    if (placed.resolution === 'section-start') return false;
    if (placed.point !== undefined) return view.isPointOnScreen(placed.point.node, placed.point.offset, this.environment.viewport);
    return placed.page === view.page;
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
    const state = this.state;
    if (state === undefined) return undefined;
    try {
      const byHref = this.spineIndexForURL(resolveURL(locator.spineHref, state.descriptor.resourceBaseURL));
      if (byHref !== undefined) return byHref;
    } catch {
      // An href that is not a URL falls back to the index.
    }
    const spine = state.packageDocument.spine;
    return Number.isInteger(locator.spineIndex) && locator.spineIndex >= 0 && locator.spineIndex < spine.length ? locator.spineIndex : undefined;
  }
}

function sameMembers(a: readonly string[], b: readonly string[]): boolean {
  if (a.length !== b.length) return false;
  const members = new Set(a);
  return b.every((id) => members.has(id));
}

// The way pages advance in a book whose spine does not say: the direction of the first section's
// content (right to left, or vertical writing from the right).
function pageProgressionOf(firstView: SectionView): PageProgression {
  try {
    const doc = firstView.document;
    const element = doc.body ?? doc.documentElement;
    const style = doc.defaultView?.getComputedStyle(element);
    if (style === undefined || style === null) return 'ltr';
    if (style.writingMode === 'vertical-rl' || style.writingMode === 'sideways-rl') return 'rtl';
    return style.direction === 'rtl' ? 'rtl' : 'ltr';
  } catch {
    return 'ltr';
  }
}
