// What the reader does for each bridge method, and the table that binds the methods to it.
import type { BridgePayload, MethodHandler } from '../bridge/BridgeTransport';
import {
  decodeBookmarkVisibilityRequest,
  decodeConfigureTypographyRequest,
  decodeGoToRequest,
  decodeOpenPublicationRequest,
  decodePageLayoutRequest,
  decodeReadingModeRequest,
  decodeScrolledContentWidthRequest,
  decodeThemeRequest,
  type GoToTarget,
} from '../bridge/decode';
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

export interface ReaderOperations {
  open(publication: PublicationDescriptor): Promise<OpenPublicationResult>;
  tableOfContents(): Promise<TableOfContentsItem[]>;
  next(): Promise<ReaderPositionResult>;
  previous(): Promise<ReaderPositionResult>;
  nextSection(): Promise<ReaderPositionResult>;
  previousSection(): Promise<ReaderPositionResult>;
  goTo(target: GoToTarget): Promise<ReaderPositionResult>;
  currentLocator(): Promise<Locator>;
  currentSelection(): Promise<TextSelection | undefined>;
  configureTypography(request: ConfigureTypographyRequest): Promise<ConfigureTypographyResult>;
  configureTheme(theme: ReadingThemeSelection): Promise<ConfigureThemeResult>;
  configureReadingMode(mode: ReadingMode): Promise<ConfigureReadingModeResult>;
  configurePageLayout(layout: PageLayout): Promise<ConfigurePageLayoutResult>;
  configureScrolledContentWidth(preset: ScrolledContentWidth, maxInlineSize: number): Promise<ConfigureScrolledContentWidthResult>;
  configureBookmarkVisibility(candidates: BookmarkVisibilityCandidate[]): Promise<string[]>;
}

// Every method of the catalogue has an entry here; the ones whose work lives elsewhere (highlights
// and search) are bound by their own modules through `extraHandlers`.
export function makeMethodHandlers(
  reader: ReaderOperations,
  extraHandlers: ReadonlyMap<string, MethodHandler> = new Map(),
): Map<string, MethodHandler> {
  const handlers = new Map<string, MethodHandler>([
    ['open', (payload: BridgePayload) => reader.open(decodeOpenPublicationRequest(payload))],
    ['tableOfContents', async () => ({ items: await reader.tableOfContents() })],
    ['next', () => reader.next()],
    ['previous', () => reader.previous()],
    ['nextSection', () => reader.nextSection()],
    ['previousSection', () => reader.previousSection()],
    ['goTo', (payload: BridgePayload) => reader.goTo(decodeGoToRequest(payload))],
    ['currentLocator', () => reader.currentLocator()],
    [
      'currentSelection',
      async () => {
        const selection = await reader.currentSelection();
        return selection === undefined ? {} : { selection };
      },
    ],
    ['configureTypography', (payload: BridgePayload) => reader.configureTypography(decodeConfigureTypographyRequest(payload))],
    ['configureTheme', (payload: BridgePayload) => reader.configureTheme(decodeThemeRequest(payload))],
    ['configureReadingMode', (payload: BridgePayload) => reader.configureReadingMode(decodeReadingModeRequest(payload))],
    ['configurePageLayout', (payload: BridgePayload) => reader.configurePageLayout(decodePageLayoutRequest(payload))],
    [
      'configureScrolledContentWidth',
      (payload: BridgePayload) => {
        const request = decodeScrolledContentWidthRequest(payload);
        return reader.configureScrolledContentWidth(request.preset, request.maxInlineSize);
      },
    ],
    [
      'configureBookmarkVisibility',
      async (payload: BridgePayload) => ({
        visibleBookmarkIDs: await reader.configureBookmarkVisibility(decodeBookmarkVisibilityRequest(payload)),
      }),
    ],
  ]);
  for (const [name, handler] of extraHandlers) handlers.set(name, handler);
  return handlers;
}
