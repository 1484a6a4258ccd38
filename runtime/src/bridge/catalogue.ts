// Typed access to the bridge catalogue. The catalogue itself lives in catalogue.json, the one table
// of method and event names and of the records that cross the bridge (an example of each, holding
// every field) that the native side also reads, so the two sides cannot drift apart.
import catalogueJSON from './catalogue.json';
import type * as records from './records';
import type { PublicationSearchResult } from '../search/SearchRunner';

export interface CatalogueMethod {
  readonly name: string;
  readonly request: readonly string[];
  readonly result: string;
}

export interface CatalogueEvent {
  readonly name: string;
  readonly payloadKeys: readonly string[];
}

export interface BridgeCatalogue {
  readonly protocolVersion: number;
  readonly responseEventName: string;
  readonly eventEventName: string;
  readonly methods: readonly CatalogueMethod[];
  readonly events: readonly CatalogueEvent[];
  readonly records: typeof catalogueJSON.records;
}

export const bridgeCatalogue: BridgeCatalogue = catalogueJSON;

export const bridgeMethodNames: ReadonlySet<string> = new Set(bridgeCatalogue.methods.map((method) => method.name));

export const bridgeEventNames: ReadonlySet<string> = new Set(bridgeCatalogue.events.map((event) => event.name));

// The page's type of each record the catalogue holds. The build fails when a record's fields and its
// example in the catalogue differ, or a record of the catalogue has no type here.
interface RecordTypes {
  TextContext: records.TextContext;
  Locator: records.Locator;
  PublicationDescriptor: records.PublicationDescriptor;
  ResolvedTypographyFont: records.ResolvedTypographyFont;
  ResolvedTypographyFontScale: records.ResolvedTypographyFontScale;
  ResolvedTypographyLineHeight: records.ResolvedTypographyLineHeight;
  ResolvedTypographyLetterSpacing: records.ResolvedTypographyLetterSpacing;
  ResolvedTypographyPageMargins: records.ResolvedTypographyPageMargins;
  ConfigureTypographyRequest: records.ConfigureTypographyRequest;
  OpenPublicationResult: records.OpenPublicationResult;
  TableOfContentsItem: records.TableOfContentsItem;
  ReaderPositionResult: records.ReaderPositionResult;
  ConfigureTypographyResult: records.ConfigureTypographyResult;
  ConfigureThemeResult: records.ConfigureThemeResult;
  ConfigureReadingModeResult: records.ConfigureReadingModeResult;
  ConfigurePageLayoutResult: records.ConfigurePageLayoutResult;
  ConfigureScrolledContentWidthResult: records.ConfigureScrolledContentWidthResult;
  BookmarkVisibilityCandidate: records.BookmarkVisibilityCandidate;
  TextSelection: records.TextSelection;
  ReaderSelectionRect: records.ReaderSelectionRect;
  PublicationSearchResult: PublicationSearchResult;
}

type CatalogueRecords = typeof catalogueJSON.records;
type SameFields<A, B> = [Exclude<keyof A, keyof B> | Exclude<keyof B, keyof A>] extends [never] ? true : false;
type FieldsAgree = {
  [Name in keyof CatalogueRecords | keyof RecordTypes]: Name extends keyof CatalogueRecords
    ? Name extends keyof RecordTypes
      ? SameFields<RecordTypes[Name], CatalogueRecords[Name]>
      : false
    : false;
};
// Each entry type-checks only while it is `true`.
const fieldsAgree: { [Name in keyof FieldsAgree]: FieldsAgree[Name] & true } = {
  TextContext: true,
  Locator: true,
  PublicationDescriptor: true,
  ResolvedTypographyFont: true,
  ResolvedTypographyFontScale: true,
  ResolvedTypographyLineHeight: true,
  ResolvedTypographyLetterSpacing: true,
  ResolvedTypographyPageMargins: true,
  ConfigureTypographyRequest: true,
  OpenPublicationResult: true,
  TableOfContentsItem: true,
  ReaderPositionResult: true,
  ConfigureTypographyResult: true,
  ConfigureThemeResult: true,
  ConfigureReadingModeResult: true,
  ConfigurePageLayoutResult: true,
  ConfigureScrolledContentWidthResult: true,
  BookmarkVisibilityCandidate: true,
  TextSelection: true,
  ReaderSelectionRect: true,
  PublicationSearchResult: true,
};
void fieldsAgree;
