// Reader of the package document: metadata, manifest, spine and rendition properties.
import { relativeHref, resolveURL, resourceKey } from './hrefs';
import {
  childElements,
  collapsedText,
  dublinCoreNamespace,
  firstChildElement,
  parseXML,
  PublicationFormatError,
  tokens,
} from './xml';

export type PageProgressionDirection = 'ltr' | 'rtl' | 'default';
// The way an open book's pages advance: the spine's direction, or where it gives none, its own.
export type PageProgression = Exclude<PageProgressionDirection, 'default'>;
export type RenditionLayout = 'reflowable' | 'pre-paginated';

// The types of the documents that the reader shows in a section frame. A spine item of any other
// type (SVG, plain XML, anything a book may name) is left out of the spine: such a document is
// never framed, so no way of running script that its type may bring can reach the page.
export const renderedSpineMediaTypes: ReadonlySet<string> = new Set(['application/xhtml+xml', 'text/html']);

export interface ManifestItem {
  id: string;
  // Absolute URL on the publication scheme.
  url: string;
  mediaType: string;
  properties: string[];
  // The id of the item to use where this one's type cannot be shown.
  fallback?: string;
}

// A spine item of a type the reader does not show, without a fallback that it does.
export interface SkippedSpineItem {
  idref: string;
  // Relative to the package directory, or the idref where the manifest has no such item.
  href: string;
  mediaType: string | undefined;
}

export interface SpineItem {
  index: number;
  idref: string;
  // The itemref's step in an EPUB CFI: twice its position among the spine's element children.
  cfiStep: number;
  url: string;
  // Relative to the package directory; what locators store as `spineHref`.
  href: string;
  mediaType: string;
  linear: boolean;
  properties: string[];
  layout: RenditionLayout;
  // The items of the spine between the previous shown item and this one that cannot be shown.
  skippedBefore: SkippedSpineItem[];
}

export interface PackageDocument {
  version: string;
  uniqueIdentifier: string | undefined;
  // The unique identifier's text exactly as written, which the font obfuscation key is made from.
  uniqueIdentifierText: string | undefined;
  // The text of every dc:identifier, in document order, as written.
  identifiers: string[];
  title: string | undefined;
  // The base direction that the title's and the first creator's `dir` declare, or else the
  // package's; undefined where nothing is declared.
  titleDirection: 'ltr' | 'rtl' | undefined;
  creatorsDirection: 'ltr' | 'rtl' | undefined;
  creators: string[];
  language: string | undefined;
  coverURL: string | undefined;
  manifest: ManifestItem[];
  spine: SpineItem[];
  // The items after the last shown one that cannot be shown.
  skippedAtEnd: SkippedSpineItem[];
  // The spine element's step in an EPUB CFI.
  spineCfiStep: number;
  pageProgressionDirection: PageProgressionDirection;
  layout: RenditionLayout;
  navigationDocumentURL: string | undefined;
  ncxURL: string | undefined;
  // For each manifest item of an image type that no browser draws, keyed by resourceKey of its
  // URL: the URL of the first item of its fallback chain that one does.
  imageFallbacks: ReadonlyMap<string, string>;
}

// The image types that every reading system draws.
export const coreImageMediaTypes: ReadonlySet<string> = new Set(['image/gif', 'image/jpeg', 'image/png', 'image/svg+xml', 'image/webp']);

function metaProperty(metadata: Element, property: string): string | undefined {
  for (const meta of childElements(metadata, 'meta')) {
    if (meta.getAttribute('property') === property && meta.getAttribute('refines') === null) {
      const value = collapsedText(meta);
      if (value.length > 0) return value;
    }
  }
  return undefined;
}

function dublinCore(metadata: Element, localName: string): Element[] {
  return childElements(metadata, localName).filter((element) => element.namespaceURI === dublinCoreNamespace);
}

// The main title: the one refined with title-type "main" when the package says so, else the first.
// The base direction that an element's `dir` declares, or else the package's.
function declaredDirection(element: Element | undefined, root: Element): 'ltr' | 'rtl' | undefined {
  const declared = (element?.getAttribute('dir') ?? root.getAttribute('dir') ?? '').trim().toLowerCase();
  return declared === 'ltr' || declared === 'rtl' ? declared : undefined;
}

function readTitleElement(metadata: Element): Element | undefined {
  const titles = dublinCore(metadata, 'title').filter((title) => collapsedText(title).length > 0);
  const refinedMain = titles.find((title) => {
    const id = title.getAttribute('id');
    if (id === null) return false;
    return childElements(metadata, 'meta').some(
      (meta) =>
        meta.getAttribute('refines') === `#${id}` &&
        meta.getAttribute('property') === 'title-type' &&
        collapsedText(meta) === 'main',
    );
  });
  return refinedMain ?? titles[0];
}

function readCover(metadata: Element, manifest: ManifestItem[], manifestHrefs: Map<string, ManifestItem>): string | undefined {
  const coverImage = manifest.find((item) => item.properties.includes('cover-image'));
  if (coverImage !== undefined) return coverImage.url;
  for (const meta of childElements(metadata, 'meta')) {
    if (meta.getAttribute('name') !== 'cover') continue;
    const content = (meta.getAttribute('content') ?? '').trim();
    if (content.length === 0) continue;
    // The content names a manifest id; some books put the image's href there instead.
    const item = manifest.find((entry) => entry.id === content) ?? manifestHrefs.get(content);
    if (item !== undefined && item.mediaType.startsWith('image/')) return item.url;
  }
  return undefined;
}

// The first item of `item`'s fallback chain (itself included) whose type is in `shown`; none when
// the chain ends, names a missing item, or comes back to an item it passed.
export function renderedFallback(
  item: ManifestItem | undefined,
  manifestByID: ReadonlyMap<string, ManifestItem>,
  shown: ReadonlySet<string>,
): ManifestItem | undefined {
  const passed = new Set<string>();
  for (let current = item; current !== undefined; current = current.fallback === undefined ? undefined : manifestByID.get(current.fallback)) {
    if (passed.has(current.id)) return undefined;
    passed.add(current.id);
    if (shown.has(current.mediaType)) return current;
  }
  return undefined;
}

function imageFallbacksOf(manifest: readonly ManifestItem[], manifestByID: ReadonlyMap<string, ManifestItem>): Map<string, string> {
  const fallbacks = new Map<string, string>();
  for (const item of manifest) {
    if (coreImageMediaTypes.has(item.mediaType) || item.fallback === undefined) continue;
    const shown = renderedFallback(item, manifestByID, coreImageMediaTypes);
    if (shown === undefined) continue;
    try {
      fallbacks.set(resourceKey(item.url), shown.url);
    } catch {
      // An item whose URL does not parse is never asked for.
    }
  }
  return fallbacks;
}

export function parsePackageDocument(text: string, packageURL: string, resourceBaseURL: string): PackageDocument {
  const document = parseXML(text, 'application/xml', 'the package document');
  const root = document.documentElement;
  if (root.localName !== 'package') throw new PublicationFormatError('not-a-package-document', 'the root element is not package');
  const metadata = firstChildElement(root, 'metadata');
  const manifestElement = firstChildElement(root, 'manifest');
  const spineElement = firstChildElement(root, 'spine');
  if (metadata === undefined || manifestElement === undefined || spineElement === undefined) {
    throw new PublicationFormatError('incomplete-package-document', 'the package document lacks metadata, manifest or spine');
  }

  const manifest: ManifestItem[] = [];
  const manifestByID = new Map<string, ManifestItem>();
  const manifestByHref = new Map<string, ManifestItem>();
  for (const element of childElements(manifestElement, 'item')) {
    const id = element.getAttribute('id');
    const href = element.getAttribute('href');
    if (id === null || href === null) continue;
    let url: string;
    try {
      url = resolveURL(href, packageURL);
    } catch {
      continue;
    }
    const item: ManifestItem = {
      id,
      url,
      mediaType: (element.getAttribute('media-type') ?? '').trim().toLowerCase(),
      properties: tokens(element.getAttribute('properties')),
    };
    const fallback = element.getAttribute('fallback');
    if (fallback !== null && fallback.trim().length > 0) item.fallback = fallback.trim();
    manifest.push(item);
    if (!manifestByID.has(id)) manifestByID.set(id, item);
    manifestByHref.set(href, item);
  }

  const layout: RenditionLayout = metaProperty(metadata, 'rendition:layout') === 'pre-paginated' ? 'pre-paginated' : 'reflowable';
  const spine: SpineItem[] = [];
  let skipped: SkippedSpineItem[] = [];
  childElements(spineElement).forEach((element, elementIndex) => {
    if (element.localName !== 'itemref') return;
    const idref = element.getAttribute('idref');
    if (idref === null) return;
    // An item of a type the reader does not frame is shown through its manifest fallback.
    const named = manifestByID.get(idref);
    const item = renderedFallback(named, manifestByID, renderedSpineMediaTypes);
    if (item === undefined) {
      skipped.push({ idref, href: named === undefined ? idref : relativeHref(named.url, resourceBaseURL), mediaType: named?.mediaType });
      return;
    }
    const properties = tokens(element.getAttribute('properties'));
    let itemLayout = layout;
    if (properties.includes('rendition:layout-pre-paginated')) itemLayout = 'pre-paginated';
    if (properties.includes('rendition:layout-reflowable')) itemLayout = 'reflowable';
    spine.push({
      index: spine.length,
      idref,
      cfiStep: 2 * (elementIndex + 1),
      url: item.url,
      href: relativeHref(item.url, resourceBaseURL),
      mediaType: item.mediaType,
      linear: (element.getAttribute('linear') ?? 'yes').trim() !== 'no',
      properties,
      layout: itemLayout,
      skippedBefore: skipped,
    });
    skipped = [];
  });
  if (spine.length === 0) throw new PublicationFormatError('empty-spine', 'the spine names no manifest item');

  const direction = spineElement.getAttribute('page-progression-direction');
  const pageProgressionDirection: PageProgressionDirection = direction === 'rtl' || direction === 'ltr' ? direction : 'default';

  const uniqueIdentifierID = root.getAttribute('unique-identifier');
  const identifiers = dublinCore(metadata, 'identifier');
  const uniqueIdentifierElement = identifiers.find((element) => element.getAttribute('id') === uniqueIdentifierID) ?? identifiers[0];

  const tocID = spineElement.getAttribute('toc');
  const ncxItem =
    (tocID === null ? undefined : manifestByID.get(tocID)) ??
    manifest.find((item) => item.mediaType === 'application/x-dtbncx+xml');
  const languageElement = dublinCore(metadata, 'language')[0];
  const titleElement = readTitleElement(metadata);
  const creatorElements = dublinCore(metadata, 'creator').filter((creator) => collapsedText(creator).length > 0);

  return {
    version: root.getAttribute('version') ?? '',
    uniqueIdentifier: uniqueIdentifierElement === undefined ? undefined : (uniqueIdentifierElement.textContent ?? '').trim(),
    uniqueIdentifierText: uniqueIdentifierElement === undefined ? undefined : (uniqueIdentifierElement.textContent ?? ''),
    identifiers: identifiers.map((element) => element.textContent ?? ''),
    title: titleElement === undefined ? undefined : collapsedText(titleElement),
    titleDirection: declaredDirection(titleElement, root),
    creatorsDirection: declaredDirection(creatorElements[0], root),
    creators: creatorElements
      .map((creator) => collapsedText(creator))
      .filter((name) => name.length > 0),
    language: languageElement === undefined ? undefined : collapsedText(languageElement),
    coverURL: readCover(metadata, manifest, manifestByHref),
    manifest,
    spine,
    skippedAtEnd: skipped,
    spineCfiStep: 2 * (childElements(root).indexOf(spineElement) + 1),
    pageProgressionDirection,
    layout,
    navigationDocumentURL: manifest.find((item) => item.properties.includes('nav'))?.url,
    ncxURL: ncxItem?.url,
    imageFallbacks: imageFallbacksOf(manifest, manifestByID),
  };
}
