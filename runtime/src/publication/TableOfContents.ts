// Readers of the table of contents: the EPUB 3 navigation document and the EPUB 2 NCX. Both give
// the tree of `TableOfContentsItem`, with hrefs relative to the package directory.
import { BridgeRequestError } from '../bridge/BridgeRequestError';
import type { TableOfContentsItem } from '../bridge/records';
import type { PackageDocument } from './PackageDocument';
import { relativeHref, resolveURL } from './hrefs';
import { childElements, collapsedText, descendantElements, opsNamespace, parseXML, PublicationFormatError, tokens } from './xml';

function linkHref(rawHref: string | null, documentURL: string, resourceBaseURL: string): string {
  if (rawHref === null || rawHref.trim().length === 0) return '';
  try {
    return relativeHref(resolveURL(rawHref.trim(), documentURL), resourceBaseURL);
  } catch {
    return '';
  }
}

// A heading without a link of its own leads to its first descendant that has one.
function firstHref(items: TableOfContentsItem[]): string {
  for (const item of items) {
    if (item.href.length > 0) return item.href;
    const nested = firstHref(item.children);
    if (nested.length > 0) return nested;
  }
  return '';
}

function epubTypes(element: Element): string[] {
  return tokens(element.getAttributeNS(opsNamespace, 'type') ?? element.getAttribute('epub:type'));
}

function parseNavigationList(list: Element, documentURL: string, resourceBaseURL: string): TableOfContentsItem[] {
  const items: TableOfContentsItem[] = [];
  for (const entry of childElements(list, 'li')) {
    const label = childElements(entry).find((child) => child.localName === 'a' || child.localName === 'span');
    const nestedList = childElements(entry, 'ol')[0];
    const children = nestedList === undefined ? [] : parseNavigationList(nestedList, documentURL, resourceBaseURL);
    if (label === undefined && children.length === 0) continue;
    let title = label === undefined ? '' : collapsedText(label);
    if (title.length === 0 && label !== undefined) {
      title = (label.getAttribute('title') ?? descendantElements(label, 'img')[0]?.getAttribute('alt') ?? '').trim();
    }
    let href = label !== undefined && label.localName === 'a' ? linkHref(label.getAttribute('href'), documentURL, resourceBaseURL) : '';
    if (href.length === 0) href = firstHref(children);
    items.push({ title, href, children });
  }
  return items;
}

function parseNavigationMarkup(text: string): Document {
  try {
    return parseXML(text, 'application/xhtml+xml', 'the navigation document');
  } catch {
    // Some navigation documents are not well-formed; the HTML parser still finds their lists.
    return new DOMParser().parseFromString(text, 'text/html');
  }
}

export function parseNavigationDocument(text: string, documentURL: string, resourceBaseURL: string): TableOfContentsItem[] {
  const document = parseNavigationMarkup(text);
  const navigations = descendantElements(document, 'nav');
  const tocNavigation = navigations.find((nav) => epubTypes(nav).includes('toc')) ?? navigations[0];
  if (tocNavigation === undefined) throw new PublicationFormatError('no-table-of-contents', 'the navigation document has no nav element');
  const list = descendantElements(tocNavigation, 'ol')[0];
  if (list === undefined) return [];
  return parseNavigationList(list, documentURL, resourceBaseURL);
}

function parseNavigationPoints(parent: Element, documentURL: string, resourceBaseURL: string): TableOfContentsItem[] {
  return childElements(parent, 'navPoint').map((point) => {
    const label = childElements(point, 'navLabel')[0];
    const text = label === undefined ? undefined : childElements(label, 'text')[0];
    const content = childElements(point, 'content')[0];
    const children = parseNavigationPoints(point, documentURL, resourceBaseURL);
    let href = linkHref(content?.getAttribute('src') ?? null, documentURL, resourceBaseURL);
    if (href.length === 0) href = firstHref(children);
    return { title: text === undefined ? '' : collapsedText(text), href, children };
  });
}

export function parseNCX(text: string, documentURL: string, resourceBaseURL: string): TableOfContentsItem[] {
  const document = parseXML(text, 'application/xml', 'the NCX');
  const navigationMap = descendantElements(document, 'navMap')[0];
  if (navigationMap === undefined) throw new PublicationFormatError('no-table-of-contents', 'the NCX has no navMap');
  return parseNavigationPoints(navigationMap, documentURL, resourceBaseURL);
}

// The book's contents from its navigation document, or from its NCX where it has none or where the
// navigation document cannot be read. Throws BridgeRequestError(table-of-contents-unreadable) when
// neither can be.
export async function readTableOfContents(
  packageDocument: Pick<PackageDocument, 'navigationDocumentURL' | 'ncxURL'>,
  resourceBaseURL: string,
  loadText: (url: string) => Promise<string>,
): Promise<TableOfContentsItem[]> {
  const { navigationDocumentURL, ncxURL } = packageDocument;
  try {
    if (navigationDocumentURL !== undefined) {
      return parseNavigationDocument(await loadText(navigationDocumentURL), navigationDocumentURL, resourceBaseURL);
    }
    if (ncxURL !== undefined) return parseNCX(await loadText(ncxURL), ncxURL, resourceBaseURL);
    return [];
  } catch (error) {
    if (ncxURL === undefined || navigationDocumentURL === undefined) {
      throw new BridgeRequestError('table-of-contents-unreadable', 'the table of contents could not be read', String(error));
    }
    return parseNCX(await loadText(ncxURL), ncxURL, resourceBaseURL);
  }
}
