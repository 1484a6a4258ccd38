// Clicks in a book section. A book's own links are followed by the reader, never by the frame: a
// link to a section goes up as `linkActivated` (the native side goes there through the reader and
// remembers whence), a link to a footnote opens the note beside it, a link to any other file of
// the book does nothing, and a link out of the book is left to the web view, whose navigation
// policy asks the reader before anything leaves. A click on either side of a page turns it, in the
// book's page progression.
import type { ThemeColors } from '../layout/Presentation';
import { resolveWithinPublication, resourceKey, splitFragment } from '../publication/hrefs';
import type { PageProgression } from '../publication/PackageDocument';
import { FootnotePopover } from './FootnotePopover';

const xlinkNamespace = 'http://www.w3.org/1999/xlink';
const opsNamespace = 'http://www.idpf.org/2007/ops';

// The share of the page's width, on each side, where a click turns the page.
export const pageTurnZone = 0.2;

// What a link of a section leads to.
export type LinkDestination =
  | { kind: 'section'; url: string }
  | { kind: 'publication-resource' }
  | { kind: 'outside' }
  | { kind: 'invalid' };

// The address a link element names: `href`, or SVG's `xlink:href`.
export function hrefOfLink(element: Element): string | undefined {
  return element.getAttribute('href') ?? element.getAttributeNS(xlinkNamespace, 'href') ?? undefined;
}

// The link element a click landed in, if any.
export function linkOfClick(target: EventTarget | null): Element | undefined {
  let node = target as Node | null;
  // Text nodes have no closest(); their parent is where the link is looked for.
  while (node !== null && node.nodeType !== Node.ELEMENT_NODE) node = node.parentNode;
  const link = (node as Element | null)?.closest('a, area') ?? undefined;
  return link !== undefined && hrefOfLink(link) !== undefined ? link : undefined;
}

// Resolves a link's address against its section's URL, never against a `<base>` the book wrote,
// and says where it leads. `sectionIndexOf` finds the spine item of a resource URL.
export function linkDestination(
  href: string,
  sectionURL: string,
  publicationRoot: string,
  sectionIndexOf: (resourceURL: string) => number | undefined,
): LinkDestination {
  let absolute: string | undefined;
  try {
    absolute = resolveWithinPublication(href.trim(), sectionURL, publicationRoot);
  } catch {
    return { kind: 'invalid' };
  }
  if (absolute === undefined) return { kind: 'invalid' };
  if (!absolute.startsWith(publicationRoot)) {
    // Another address of the reader's own scheme (another book) leads nowhere; anything else
    // leaves the book.
    return new URL(absolute).protocol === new URL(publicationRoot).protocol ? { kind: 'invalid' } : { kind: 'outside' };
  }
  const { resource } = splitFragment(absolute);
  let key: string;
  try {
    key = resourceKey(resource);
  } catch {
    return { kind: 'invalid' };
  }
  return sectionIndexOf(key) === undefined ? { kind: 'publication-resource' } : { kind: 'section', url: absolute };
}

function tokens(value: string | null): string[] {
  return value === null ? [] : value.trim().split(/\s+/);
}

// The semantic types of an element: its `epub:type` and its ARIA `role` tokens.
function semanticTypes(element: Element): string[] {
  return [...tokens(element.getAttributeNS(opsNamespace, 'type') ?? element.getAttribute('epub:type')), ...tokens(element.getAttribute('role'))];
}

// Whether a link is marked as a reference to a note.
export function isNoteReference(link: Element): boolean {
  return semanticTypes(link).some((type) => type === 'noteref' || type === 'doc-noteref');
}

const noteTypes = new Set(['footnote', 'endnote', 'rearnote', 'note', 'doc-footnote', 'doc-endnote']);

// Whether an element is marked as a footnote, an endnote or a rear note.
export function isNote(element: Element): boolean {
  return semanticTypes(element).some((type) => noteTypes.has(type));
}

// The side of the page a click at `x` (in the page's coordinates) falls on, if it is near enough
// to an edge to turn the page.
export function pageTurnOfClick(x: number, pageLeft: number, pageWidth: number, progression: PageProgression): 'next' | 'previous' | undefined {
  if (pageWidth <= 0) return undefined;
  const share = (x - pageLeft) / pageWidth;
  const side = share <= pageTurnZone ? 'left' : share >= 1 - pageTurnZone ? 'right' : undefined;
  if (side === undefined) return undefined;
  const forward = progression === 'rtl' ? 'left' : 'right';
  return side === forward ? 'next' : 'previous';
}

// What the click handler needs of the reader.
export interface SectionClickHost {
  // The URL of the section shown in `doc`'s frame, the root of the publication's files, and the
  // spine item of a resource URL.
  publicationRoot(): string | undefined;
  spineIndexOf(resourceURL: string): number | undefined;
  pageProgression(): PageProgression;
  isPaginated(): boolean;
  // The section's document for a note in another section, parsed without running anything.
  parsedSection(resourceURL: string): Promise<Document | undefined>;
  themeColors(): ThemeColors;
  // The page's box in the runtime page, for the sides that turn it.
  viewportBox(): DOMRect;
  linkActivated(url: string): void;
  pageTurnRequested(direction: 'next' | 'previous'): void;
}

// Listens to the clicks of the sections' documents; one per reader.
export class SectionClickHandler {
  private readonly host: SectionClickHost;
  private readonly popover = new FootnotePopover();
  private noteURL: string | undefined;

  constructor(host: SectionClickHost) {
    this.host = host;
  }

  // Starts listening in a section's document, whose frame shows `sectionURL`.
  attach(doc: Document, frame: HTMLIFrameElement, sectionURL: string): void {
    doc.addEventListener('click', (event) => void this.handle(doc, frame, sectionURL, event), true);
  }

  // The page moved or another section came: a note shown stays with the page it was opened on.
  dismiss(): void {
    this.popover.hide();
    this.noteURL = undefined;
  }

  private async handle(doc: Document, frame: HTMLIFrameElement, sectionURL: string, event: MouseEvent): Promise<void> {
    if (event.button !== 0) return;
    if (this.popover.isOpen) {
      if (this.popover.isGoToNoteButton(event.target)) {
        event.preventDefault();
        const url = this.noteURL;
        this.dismiss();
        if (url !== undefined) this.host.linkActivated(url);
        return;
      }
      if (!this.popover.contains(event.target)) {
        // A click beside an open note closes it and does nothing else.
        event.preventDefault();
        this.dismiss();
        return;
      }
    }
    const link = linkOfClick(event.target);
    if (link === undefined) {
      this.turnPageOnASide(doc, frame, event);
      return;
    }
    const root = this.host.publicationRoot();
    const href = hrefOfLink(link) as string;
    if (root === undefined) return;
    const destination = linkDestination(href, sectionURL, root, (url) => this.host.spineIndexOf(url));
    // Out of the book: the web view's navigation policy asks the reader first.
    if (destination.kind === 'outside') return;
    event.preventDefault();
    if (destination.kind !== 'section') return;
    if (this.popover.contains(link)) this.dismiss();
    if (isNoteReference(link)) {
      const note = await this.noteOf(doc, sectionURL, destination.url);
      if (note !== undefined && link.isConnected) {
        this.popover.show(doc, link, note, this.host.themeColors());
        this.noteURL = destination.url;
        return;
      }
    }
    this.host.linkActivated(destination.url);
  }

  // The footnote, endnote or rear note that a note reference names, if it is one.
  private async noteOf(doc: Document, sectionURL: string, url: string): Promise<Element | undefined> {
    const { resource, fragment } = splitFragment(url);
    if (fragment === undefined || fragment.length === 0) return undefined;
    let id = fragment;
    try {
      id = decodeURIComponent(fragment);
    } catch {
      // A fragment with a stray "%" is taken as written.
    }
    const sameSection = resourceKey(resource) === resourceKey(splitFragment(sectionURL).resource);
    const owner = sameSection ? doc : await this.host.parsedSection(resource);
    const note = owner?.getElementById(id) ?? undefined;
    return note !== undefined && isNote(note) ? note : undefined;
  }

  private turnPageOnASide(doc: Document, frame: HTMLIFrameElement, event: MouseEvent): void {
    if (!this.host.isPaginated()) return;
    // The end of a selection by dragging is a click too.
    const selection = doc.getSelection();
    if (selection !== null && !selection.isCollapsed) return;
    const page = this.host.viewportBox();
    const x = frame.getBoundingClientRect().left + event.clientX;
    const direction = pageTurnOfClick(x, page.left, page.width, this.host.pageProgression());
    if (direction === undefined) return;
    event.preventDefault();
    this.host.pageTurnRequested(direction);
  }
}
