// The JSON records that cross the bridge. Field names are the wire keys.

export interface TextContext {
  exact: string;
  prefix?: string;
  suffix?: string;
}

export interface Locator {
  cfi?: string;
  spineHref: string;
  spineIndex: number;
  sectionProgression?: number;
  totalProgression?: number;
  excerpt?: TextContext;
}

export interface PublicationDescriptor {
  publicationID: string;
  packageURL: string;
  resourceBaseURL: string;
  accessMode: 'applicationResourceScheme';
}

export type ReadingMode = 'paginated' | 'scrolled';
export type PageLayout = 'adaptive' | 'singlePage' | 'doublePage';
export type ReadingThemeSelection = 'system' | 'light' | 'warm' | 'dark';
export type ScrolledContentWidth = 'narrow' | 'comfortable' | 'wide';

export interface ResolvedTypographyFont {
  mode: 'bookDefault' | 'systemFont';
  stableName?: string;
  cssFamilyName?: string;
  fallbackStack: string[];
}

export interface ResolvedTypographyFontScale {
  mode: 'bookDefault' | 'value';
  value?: number;
}

export interface ResolvedTypographyLineHeight {
  mode: 'bookDefault' | 'value';
  value?: number;
}

export interface ResolvedTypographyLetterSpacing {
  mode: 'bookDefault' | 'normal' | 'value';
  value?: number;
}

export interface ResolvedTypographyPageMargins {
  mode: 'bookDefault' | 'preset';
  inlinePercentage?: number;
}

export interface ConfigureTypographyRequest {
  font: ResolvedTypographyFont;
  fontScale: ResolvedTypographyFontScale;
  lineHeight: ResolvedTypographyLineHeight;
  letterSpacing: ResolvedTypographyLetterSpacing;
  pageMargins: ResolvedTypographyPageMargins;
}

export interface OpenPublicationResult {
  title?: string;
  authors: string[];
  coverResourceURL?: string;
  spineItemCount: number;
  initialResourceURL: string;
  pageProgressionDirection?: 'ltr' | 'rtl';
  titleDirection?: 'ltr' | 'rtl';
  authorsDirection?: 'ltr' | 'rtl';
}

export interface TableOfContentsItem {
  title: string;
  href: string;
  children: TableOfContentsItem[];
}

export interface ReaderPositionResult {
  spineIndex: number;
  page: number;
  pageCount: number;
  atStart: boolean;
  atEnd: boolean;
  locatorResolution?: string;
}

export interface ConfigureTypographyResult {
  applied: boolean;
  configurationRevision: number;
  computedRootFontSize?: number;
  computedBodyFontFamily?: string;
  computedBodyFontSize?: number;
  computedParagraphLineHeight?: number;
  computedParagraphLetterSpacing?: string;
  computedCodeLetterSpacing?: string;
  computedRootPaddingInlineStart?: number;
  computedSemanticIndent?: number;
}

export interface ConfigureThemeResult {
  configurationRevision: number;
  computedBodyColor?: string;
  computedBodyBackgroundColor?: string;
}

export interface ConfigureReadingModeResult {
  requestedMode: ReadingMode;
  effectiveMode: ReadingMode;
  computedContainerOverflow: string;
  configurationRevision: number;
}

export interface ConfigurePageLayoutResult {
  requestedLayout: PageLayout;
  effectiveColumnCount: number;
  computedContainerOverflow: string;
  configurationRevision: number;
}

export interface ConfigureScrolledContentWidthResult {
  preset: ScrolledContentWidth;
  computedBodyMaxInlineSize?: number;
  configurationRevision: number;
}

export interface BookmarkVisibilityCandidate {
  id: string;
  locator: Locator;
}

export interface TextSelection {
  locator: Locator;
  selectedText: string;
}

export interface ReaderSelectionRect {
  x: number;
  y: number;
  width: number;
  height: number;
}
