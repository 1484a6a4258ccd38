// Validation of request payloads. A payload that breaks its record's rules is refused with the code
// "invalid-payload" before anything in the reader changes.
import { BridgeRequestError } from './BridgeRequestError';
import { isPlainObject, type BridgePayload } from './BridgeTransport';
import type {
  BookmarkVisibilityCandidate,
  ConfigureTypographyRequest,
  Locator,
  PageLayout,
  PublicationDescriptor,
  ReadingMode,
  ReadingThemeSelection,
  ResolvedTypographyFont,
  ResolvedTypographyFontScale,
  ResolvedTypographyLetterSpacing,
  ResolvedTypographyLineHeight,
  ResolvedTypographyPageMargins,
  ScrolledContentWidth,
  TextContext,
} from './records';

function invalid(what: string): never {
  throw new BridgeRequestError('invalid-payload', `invalid payload: ${what}`);
}

function objectField(source: BridgePayload, key: string): BridgePayload {
  const value = source[key];
  if (!isPlainObject(value)) invalid(`${key} must be an object`);
  return value;
}

function stringField(source: BridgePayload, key: string): string {
  const value = source[key];
  if (typeof value !== 'string') invalid(`${key} must be a string`);
  return value;
}

// Absent and null both mean absent.
function optionalString(source: BridgePayload, key: string): string | undefined {
  const value = source[key];
  if (value === undefined || value === null) return undefined;
  if (typeof value !== 'string') invalid(`${key} must be a string`);
  return value;
}

function optionalNumber(source: BridgePayload, key: string): number | undefined {
  const value = source[key];
  if (value === undefined || value === null) return undefined;
  if (typeof value !== 'number' || !Number.isFinite(value)) invalid(`${key} must be a finite number`);
  return value;
}

function integerField(source: BridgePayload, key: string): number {
  const value = source[key];
  if (typeof value !== 'number' || !Number.isInteger(value)) invalid(`${key} must be an integer`);
  return value;
}

function enumField<T extends string>(source: BridgePayload, key: string, cases: readonly T[]): T {
  const value = source[key];
  if (typeof value !== 'string' || !(cases as readonly string[]).includes(value)) {
    invalid(`${key} must be one of ${cases.join(', ')}`);
  }
  return value as T;
}

export function decodeTextContext(source: BridgePayload): TextContext {
  const context: TextContext = { exact: stringField(source, 'exact') };
  const prefix = optionalString(source, 'prefix');
  const suffix = optionalString(source, 'suffix');
  if (prefix !== undefined) context.prefix = prefix;
  if (suffix !== undefined) context.suffix = suffix;
  return context;
}

export function decodeLocator(source: BridgePayload): Locator {
  const locator: Locator = { spineHref: stringField(source, 'spineHref'), spineIndex: integerField(source, 'spineIndex') };
  const cfi = optionalString(source, 'cfi');
  const sectionProgression = optionalNumber(source, 'sectionProgression');
  const totalProgression = optionalNumber(source, 'totalProgression');
  if (cfi !== undefined) locator.cfi = cfi;
  if (sectionProgression !== undefined) locator.sectionProgression = sectionProgression;
  if (totalProgression !== undefined) locator.totalProgression = totalProgression;
  const excerpt = source.excerpt;
  if (excerpt !== undefined && excerpt !== null) {
    if (!isPlainObject(excerpt)) invalid('excerpt must be an object');
    locator.excerpt = decodeTextContext(excerpt);
  }
  return locator;
}

export function decodeOpenPublicationRequest(payload: BridgePayload): PublicationDescriptor {
  const publication = objectField(payload, 'publication');
  return {
    publicationID: stringField(publication, 'publicationID'),
    packageURL: stringField(publication, 'packageURL'),
    resourceBaseURL: stringField(publication, 'resourceBaseURL'),
    accessMode: enumField(publication, 'accessMode', ['applicationResourceScheme'] as const),
  };
}

export type GoToTarget = { kind: 'href'; href: string } | { kind: 'locator'; locator: Locator };

// One method name carries two payload shapes, told apart by which key is present.
export function decodeGoToRequest(payload: BridgePayload): GoToTarget {
  if (payload.locator !== undefined && payload.locator !== null) {
    return { kind: 'locator', locator: decodeLocator(objectField(payload, 'locator')) };
  }
  if (payload.href !== undefined) return { kind: 'href', href: stringField(payload, 'href') };
  invalid('goTo needs an href or a locator');
}

function decodeFont(source: BridgePayload): ResolvedTypographyFont {
  const mode = enumField(source, 'mode', ['bookDefault', 'systemFont'] as const);
  const stack = source.fallbackStack;
  if (!Array.isArray(stack) || !stack.every((entry): entry is string => typeof entry === 'string')) {
    invalid('fallbackStack must be a list of strings');
  }
  const font: ResolvedTypographyFont = { mode, fallbackStack: stack };
  const stableName = optionalString(source, 'stableName');
  const cssFamilyName = optionalString(source, 'cssFamilyName');
  if (stableName !== undefined) font.stableName = stableName;
  if (cssFamilyName !== undefined) font.cssFamilyName = cssFamilyName;
  return font;
}

function decodeValueMode<M extends string>(source: BridgePayload, modes: readonly M[]): { mode: M; value?: number } {
  const result: { mode: M; value?: number } = { mode: enumField(source, 'mode', modes) };
  const value = optionalNumber(source, 'value');
  if (value !== undefined) result.value = value;
  if (result.mode === 'value' && result.value === undefined) invalid('a value mode needs a value');
  return result;
}

export function decodeConfigureTypographyRequest(payload: BridgePayload): ConfigureTypographyRequest {
  const margins = objectField(payload, 'pageMargins');
  const pageMargins: ResolvedTypographyPageMargins = { mode: enumField(margins, 'mode', ['bookDefault', 'preset'] as const) };
  const inlinePercentage = optionalNumber(margins, 'inlinePercentage');
  if (inlinePercentage !== undefined) pageMargins.inlinePercentage = inlinePercentage;
  return {
    font: decodeFont(objectField(payload, 'font')),
    fontScale: decodeValueMode(objectField(payload, 'fontScale'), ['bookDefault', 'value'] as const) as ResolvedTypographyFontScale,
    lineHeight: decodeValueMode(objectField(payload, 'lineHeight'), ['bookDefault', 'value'] as const) as ResolvedTypographyLineHeight,
    letterSpacing: decodeValueMode(objectField(payload, 'letterSpacing'), [
      'bookDefault',
      'normal',
      'value',
    ] as const) as ResolvedTypographyLetterSpacing,
    pageMargins,
  };
}

export function decodeThemeRequest(payload: BridgePayload): ReadingThemeSelection {
  return enumField(objectField(payload, 'theme'), 'mode', ['system', 'light', 'warm', 'dark'] as const);
}

export function decodeReadingModeRequest(payload: BridgePayload): ReadingMode {
  return enumField(payload, 'mode', ['paginated', 'scrolled'] as const);
}

export function decodePageLayoutRequest(payload: BridgePayload): PageLayout {
  return enumField(payload, 'layout', ['adaptive', 'singlePage', 'doublePage'] as const);
}

export function decodeScrolledContentWidthRequest(payload: BridgePayload): {
  preset: ScrolledContentWidth;
  maxInlineSize: number;
} {
  const preset = enumField(payload, 'preset', ['narrow', 'comfortable', 'wide'] as const);
  const maxInlineSize = integerField(payload, 'maxInlineSize');
  if (maxInlineSize <= 0) invalid('maxInlineSize must be positive');
  return { preset, maxInlineSize };
}

export function decodeBookmarkVisibilityRequest(payload: BridgePayload): BookmarkVisibilityCandidate[] {
  const list = payload.bookmarks;
  if (!Array.isArray(list)) invalid('bookmarks must be a list');
  return list.map((entry: unknown) => {
    if (!isPlainObject(entry)) invalid('a bookmark candidate must be an object');
    return { id: stringField(entry, 'id'), locator: decodeLocator(objectField(entry, 'locator')) };
  });
}

const uuidPattern = /^[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}$/i;

// Ids that go back up in events must be UUIDs, or the native side drops the whole event.
function uuidField(source: BridgePayload, key: string): string {
  const value = stringField(source, key);
  if (!uuidPattern.test(value)) invalid(`${key} must be a UUID`);
  return value;
}

export interface DecodedRuntimeAnnotation {
  id: string;
  locator: Locator;
  selectedText: string;
  color: 'yellow';
}

export function decodeAnnotationRequest(payload: BridgePayload): DecodedRuntimeAnnotation {
  const annotation = objectField(payload, 'annotation');
  return {
    id: uuidField(annotation, 'id'),
    locator: decodeLocator(objectField(annotation, 'locator')),
    selectedText: stringField(annotation, 'selectedText'),
    color: enumField(annotation, 'color', ['yellow'] as const),
  };
}

export function decodeAnnotationIDRequest(payload: BridgePayload): string {
  return uuidField(payload, 'id');
}

export function decodeStartSearchRequest(payload: BridgePayload): { searchID: string; query: string } {
  return { searchID: uuidField(payload, 'searchID'), query: stringField(payload, 'query') };
}

export function decodeCancelSearchRequest(payload: BridgePayload): string {
  return uuidField(payload, 'searchID');
}
