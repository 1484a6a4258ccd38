// The documents of the book's sections for reading their text: the live document of a section
// that is loaded in a frame, otherwise the section fetched over the scheme and parsed off screen
// with DOMParser (never laid out, its scripts never run). A few parsed documents are kept.
import { TextIndex } from '../cfi/TextIndex';
import type { TextLoader } from './ResourceLoader';

export interface SectionSourceItem {
  url: string;
  mediaType: string;
}

// Parses a section the way the frame does: XHTML as XML, and HTML (or XHTML that is not well
// formed) by the HTML parser.
export function parseSectionDocument(text: string, mediaType: string): Document {
  const parser = new DOMParser();
  if (mediaType === 'application/xhtml+xml' || mediaType.endsWith('+xml') || mediaType === 'application/xml') {
    const document = parser.parseFromString(text, 'application/xhtml+xml');
    if (document.getElementsByTagNameNS('*', 'parsererror').length === 0) return document;
  }
  return parser.parseFromString(text, 'text/html');
}

// The node whose text the reader's TextIndex covers.
export function textRoot(document: Document): Node {
  return document.body ?? document.documentElement;
}

export class SectionDocuments {
  private readonly loadText: TextLoader;
  private readonly item: (spineIndex: number) => SectionSourceItem | undefined;
  private readonly live: (spineIndex: number) => Document | undefined;
  private readonly capacity: number;
  private readonly parsed = new Map<number, Promise<Document>>();
  private readonly indices = new WeakMap<Document, TextIndex>();

  constructor(
    loadText: TextLoader,
    item: (spineIndex: number) => SectionSourceItem | undefined,
    live: (spineIndex: number) => Document | undefined,
    capacity = 8,
  ) {
    this.loadText = loadText;
    this.item = item;
    this.live = live;
    this.capacity = capacity;
  }

  // The section's document; a loaded frame's own document when there is one.
  document(spineIndex: number): Promise<Document> {
    const live = this.live(spineIndex);
    if (live !== undefined) return Promise.resolve(live);
    return this.parsedDocument(spineIndex);
  }

  // The section parsed off screen, whether or not a frame holds it.
  parsedDocument(spineIndex: number): Promise<Document> {
    const cached = this.parsed.get(spineIndex);
    if (cached !== undefined) {
      // Most recently used last.
      this.parsed.delete(spineIndex);
      this.parsed.set(spineIndex, cached);
      return cached;
    }
    const item = this.item(spineIndex);
    if (item === undefined) return Promise.reject(new Error(`no spine item ${spineIndex}`));
    const loading = this.loadText(item.url).then((text) => parseSectionDocument(text, item.mediaType));
    loading.catch(() => this.parsed.delete(spineIndex));
    this.parsed.set(spineIndex, loading);
    while (this.parsed.size > this.capacity) {
      const oldest = this.parsed.keys().next().value as number;
      this.parsed.delete(oldest);
    }
    return loading;
  }

  textIndex(document: Document): TextIndex {
    let index = this.indices.get(document);
    if (index === undefined) {
      index = new TextIndex(textRoot(document));
      this.indices.set(document, index);
    }
    return index;
  }

  clear(): void {
    this.parsed.clear();
  }
}
