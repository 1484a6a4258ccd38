// Reads the sources of many sections in a few requests. A pass over a whole book (the weighing
// after an open, the first search) would otherwise pay a round trip to the native side for every
// section, which for a book of many short sections is most of the pass's time. The scheme's batch
// route ("<publication root>?section=<path>&section=<path>...") answers with a JSON array of the
// texts, each as the section's own URL serves it; it refuses whole a batch that is too long, too
// heavy or that names anything but the spine's documents, and then the sections are read one by
// one as before.
import { TextCache, type TextLoader } from '../publication/ResourceLoader';

// The texts of `resourcePaths` (paths under `rootURL`, as their URLs spell them), in order.
export type SectionBatchLoader = (rootURL: string, resourcePaths: readonly string[]) => Promise<string[]>;

// A batch the route refused; `status` says why (413: too heavy together).
export class SectionBatchRefused extends Error {
  readonly status: number;

  constructor(status: number, message: string) {
    super(message);
    this.status = status;
  }
}

// The route's URL for a batch.
export function sectionBatchURL(rootURL: string, resourcePaths: readonly string[]): string {
  return `${rootURL}?${resourcePaths.map((path) => `section=${encodeURIComponent(path)}`).join('&')}`;
}

// The route's answer read: an array of exactly `count` strings, or an error.
export function parseSectionBatch(text: string, count: number): string[] {
  const parsed: unknown = JSON.parse(text);
  if (!Array.isArray(parsed) || parsed.length !== count || !parsed.every((entry) => typeof entry === 'string')) {
    throw new Error('the section batch is not an array of the texts asked for');
  }
  return parsed as string[];
}

export const loadSectionBatch: SectionBatchLoader = (rootURL, resourcePaths) =>
  new Promise((resolve, reject) => {
    const request = new XMLHttpRequest();
    request.open('GET', sectionBatchURL(rootURL, resourcePaths), true);
    request.responseType = 'text';
    request.overrideMimeType('application/json; charset=utf-8');
    request.onload = () => {
      if (request.status !== 200 && request.status !== 0) {
        reject(new SectionBatchRefused(request.status, request.responseText));
        return;
      }
      try {
        resolve(parseSectionBatch(request.responseText, resourcePaths.length));
      } catch (error) {
        reject(error);
      }
    };
    request.onerror = () => reject(new Error('could not read a batch of sections'));
    request.send();
  });

export interface SectionBatchOptions {
  // How many sections one request names at most; the route takes up to 256.
  maximumItems?: number;
}

// Feeds a TextCache from batches: `read` is the cache's loader, and `prefetch` starts the reads of
// many sections at once, each of which the cache then holds as if read alone.
export class SectionBatchReader {
  private readonly loadBatch: SectionBatchLoader;
  private readonly loadText: TextLoader;
  private readonly maximumItems: number;
  // A section's text on its way in a batch, until the cache takes it.
  private readonly arriving = new Map<string, Promise<string>>();
  // Sections already asked for in a batch since the last clear().
  private readonly asked = new Set<string>();

  constructor(loadBatch: SectionBatchLoader, loadText: TextLoader, options: SectionBatchOptions = {}) {
    this.loadBatch = loadBatch;
    this.loadText = loadText;
    this.maximumItems = Math.max(1, options.maximumItems ?? 64);
  }

  // The loader to make the cache with: a section's text from its batch when one is on its way,
  // otherwise read alone.
  readonly read: TextLoader = (url) => {
    const arriving = this.arriving.get(url);
    if (arriving === undefined) return this.loadText(url);
    this.arriving.delete(url);
    return arriving;
  };

  // Starts reading, in batches, those of `urls` (sections of the publication at `rootURL`) that
  // the cache does not hold and no batch has asked for yet.
  prefetch(rootURL: string, urls: readonly string[], cache: TextCache): void {
    const wanted = urls.filter((url) => url.startsWith(rootURL) && url.length > rootURL.length && !cache.has(url) && !this.asked.has(url));
    for (let start = 0; start < wanted.length; start += this.maximumItems) {
      const batch = wanted.slice(start, start + this.maximumItems);
      const texts = this.readBatch(rootURL, batch);
      batch.forEach((url, position) => {
        this.asked.add(url);
        this.arriving.set(
          url,
          texts.then((read) => read[position] as Promise<string>),
        );
        // The cache asks `read` for the text at once, unless a read of its own is under way.
        cache.load(url).catch(() => undefined);
        this.arriving.delete(url);
      });
    }
  }

  // Forgets what was asked for; for when another publication opens.
  clear(): void {
    this.asked.clear();
    this.arriving.clear();
  }

  // The texts of `urls`: one request, halved while the route finds them too heavy together, and
  // read one by one when it refuses them otherwise or cannot be reached.
  private readBatch(rootURL: string, urls: readonly string[]): Promise<Promise<string>[]> {
    return this.loadBatch(
      rootURL,
      urls.map((url) => url.slice(rootURL.length)),
    ).then(
      (texts) => texts.map((text) => Promise.resolve(text)),
      (error: unknown) => {
        if (error instanceof SectionBatchRefused && error.status === 413 && urls.length > 1) {
          const half = Math.ceil(urls.length / 2);
          return Promise.all([this.readBatch(rootURL, urls.slice(0, half)), this.readBatch(rootURL, urls.slice(half))]).then(([first, second]) => [...first, ...second]);
        }
        return urls.map((url) => this.loadText(url));
      },
    );
  }
}

// The sources of a book's sections, read once while they stay in the cache, and read in batches
// ahead of use when asked to (without a batch loader, always one by one).
export class SectionTexts {
  private readonly cache: TextCache;
  private readonly batches: SectionBatchReader | undefined;

  constructor(loadText: TextLoader, loadBatch?: SectionBatchLoader, options: SectionBatchOptions = {}) {
    this.batches = loadBatch === undefined ? undefined : new SectionBatchReader(loadBatch, loadText, options);
    this.cache = new TextCache(this.batches?.read ?? loadText);
  }

  load(url: string): Promise<string> {
    return this.cache.load(url);
  }

  // Starts reading the sections of `urls` under `rootURL` that the cache does not hold.
  prefetch(rootURL: string, urls: readonly string[]): void {
    this.batches?.prefetch(rootURL, urls, this.cache);
  }

  clear(): void {
    this.cache.clear();
    this.batches?.clear();
  }
}
