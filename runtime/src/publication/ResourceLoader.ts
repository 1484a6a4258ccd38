// Reads publication resources over the scheme. XMLHttpRequest is used because it reaches custom
// schemes of the same origin in WebKit where fetch may not.
export type TextLoader = (url: string) => Promise<string>;

export const loadText: TextLoader = (url) =>
  new Promise((resolve, reject) => {
    const request = new XMLHttpRequest();
    request.open('GET', url, true);
    request.responseType = 'text';
    request.overrideMimeType('text/plain; charset=utf-8');
    request.onload = () => {
      // Custom schemes answer with status 200; 0 is what some engines report for them as well.
      if (request.status === 200 || request.status === 0) resolve(request.responseText);
      else reject(new Error(`status ${request.status} for ${url}`));
    };
    request.onerror = () => reject(new Error(`could not read ${url}`));
    request.send();
  });

export type BinaryLoader = (url: string) => Promise<ArrayBuffer>;

export const loadBinary: BinaryLoader = (url) =>
  new Promise((resolve, reject) => {
    const request = new XMLHttpRequest();
    request.open('GET', url, true);
    request.responseType = 'arraybuffer';
    request.onload = () => {
      if ((request.status === 200 || request.status === 0) && request.response instanceof ArrayBuffer) resolve(request.response);
      else reject(new Error(`status ${request.status} for ${url}`));
    };
    request.onerror = () => reject(new Error(`could not read ${url}`));
    request.send();
  });

export type BlobLoader = (url: string) => Promise<Blob>;

// A file with the type the scheme serves it with, for media elements.
export const loadBlob: BlobLoader = (url) =>
  new Promise((resolve, reject) => {
    const request = new XMLHttpRequest();
    request.open('GET', url, true);
    request.responseType = 'blob';
    request.onload = () => {
      if ((request.status === 200 || request.status === 0) && request.response instanceof Blob) resolve(request.response);
      else reject(new Error(`status ${request.status} for ${url}`));
    };
    request.onerror = () => reject(new Error(`could not read ${url}`));
    request.send();
  });

export const defaultTextCacheBytes = 64 * 1024 * 1024;

// Resource texts kept once read, by URL, so that the passes over a book's sections (weighing them
// at open, searching them) read each over the scheme once: every read costs a round trip to the
// native side, which for a book of many short sections is most of a pass's time. The texts held
// stay within a budget of bytes (UTF-16, as the page holds them); past it the least recently used
// go. A read under way is shared with whoever asks for the same URL meanwhile. A failed read is
// not kept, so the next request tries again.
export class TextCache {
  private readonly readText: TextLoader;
  private readonly capacityBytes: number;
  // Least recently used first.
  private readonly texts = new Map<string, string>();
  private readonly reads = new Map<string, Promise<string>>();
  private heldBytes = 0;
  // Reads started before the last clear() are not kept.
  private epoch = 0;

  constructor(readText: TextLoader, capacityBytes = defaultTextCacheBytes) {
    this.readText = readText;
    this.capacityBytes = capacityBytes;
  }

  // The resource's text, from the cache or read (once) over the loader.
  load(url: string): Promise<string> {
    const kept = this.texts.get(url);
    if (kept !== undefined) {
      this.texts.delete(url);
      this.texts.set(url, kept);
      return Promise.resolve(kept);
    }
    const underWay = this.reads.get(url);
    if (underWay !== undefined) return underWay;
    const epoch = this.epoch;
    const read = this.readText(url).then(
      (text) => {
        if (this.epoch === epoch) {
          this.reads.delete(url);
          this.keep(url, text);
        }
        return text;
      },
      (error: unknown) => {
        if (this.epoch === epoch) this.reads.delete(url);
        throw error;
      },
    );
    this.reads.set(url, read);
    return read;
  }

  // Whether the text of `url` is held now (a read under way does not count).
  has(url: string): boolean {
    return this.texts.has(url);
  }

  get bytes(): number {
    return this.heldBytes;
  }

  // Forgets every text; reads under way still answer their callers but are not kept.
  clear(): void {
    this.texts.clear();
    this.reads.clear();
    this.heldBytes = 0;
    this.epoch += 1;
  }

  private keep(url: string, text: string): void {
    const bytes = text.length * 2;
    // A text larger than the whole budget would only push everything else out.
    if (bytes > this.capacityBytes) return;
    this.texts.set(url, text);
    this.heldBytes += bytes;
    for (const [oldest, oldText] of this.texts) {
      if (this.heldBytes <= this.capacityBytes) break;
      this.texts.delete(oldest);
      this.heldBytes -= oldText.length * 2;
    }
  }
}
