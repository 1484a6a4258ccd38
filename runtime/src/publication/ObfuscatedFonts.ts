// The book's obfuscated fonts, restored and handed to each section document. The book's CSS names
// them in @font-face rules; the browser fetches those files as they are and cannot use them, so
// for each such rule the restored bytes are added to the document's font set as a FontFace under
// the rule's family and descriptors. A face built from bytes is no fetch, so the section's content
// policy stays as it is.
import { resolveURL, resourceKey } from './hrefs';
import {
  deobfuscate,
  obfuscationKey,
  parseEncryptionDocument,
  sha1,
  type Digest,
  type ObfuscationAlgorithm,
  type PublicationIdentifiers,
} from './FontObfuscation';
import type { BinaryLoader, TextLoader } from './ResourceLoader';

interface FontSource {
  algorithm: ObfuscationAlgorithm;
  url: string;
}

// The URLs inside a @font-face `src` value, in their order.
export function sourceURLs(source: string): string[] {
  const urls: string[] = [];
  const pattern = /url\(\s*(?:"([^"]*)"|'([^']*)'|([^)\s]*))\s*\)/g;
  for (let match = pattern.exec(source); match !== null; match = pattern.exec(source)) {
    const url = match[1] ?? match[2] ?? match[3] ?? '';
    if (url.length > 0) urls.push(url);
  }
  return urls;
}

// A family name as CSSOM serialises it, without its quotes.
export function unquotedFamily(family: string): string {
  const trimmed = family.trim();
  const quoted = /^(["'])(.*)\1$/.exec(trimmed);
  return quoted === null ? trimmed : (quoted[2] as string).replace(/\\(.)/g, '$1');
}

function fontFaceRules(sheet: CSSStyleSheet, found: { rule: CSSFontFaceRule; base: string }[], seen: Set<CSSStyleSheet>): void {
  if (seen.has(sheet)) return;
  seen.add(sheet);
  let rules: CSSRuleList;
  try {
    rules = sheet.cssRules;
  } catch {
    return;
  }
  const base = sheet.href ?? sheet.ownerNode?.baseURI ?? '';
  const visit = (list: CSSRuleList): void => {
    for (const rule of Array.from(list)) {
      // Rules of another realm fail instanceof, so the type number tells them apart.
      if (rule.type === CSSRule.FONT_FACE_RULE) found.push({ rule: rule as CSSFontFaceRule, base });
      else if (rule.type === CSSRule.IMPORT_RULE) {
        const imported = (rule as CSSImportRule).styleSheet;
        if (imported !== null) fontFaceRules(imported, found, seen);
      } else if ('cssRules' in rule) visit((rule as CSSGroupingRule).cssRules);
    }
  };
  visit(rules);
}

export class ObfuscatedFonts {
  private readonly sources: Map<string, FontSource>;
  private readonly identifiers: PublicationIdentifiers;
  private readonly loadBinary: BinaryLoader;
  private readonly digest: Digest;
  private readonly restored = new Map<string, Promise<ArrayBuffer | undefined>>();

  private constructor(sources: Map<string, FontSource>, identifiers: PublicationIdentifiers, loadBinary: BinaryLoader, digest: Digest) {
    this.sources = sources;
    this.identifiers = identifiers;
    this.loadBinary = loadBinary;
    this.digest = digest;
  }

  // Reads META-INF/encryption.xml under the container's root URL. A book without it, or whose
  // metadata can't be read, has no obfuscated fonts.
  static async load(
    rootURL: string,
    identifiers: PublicationIdentifiers,
    loadText: TextLoader,
    loadBinary: BinaryLoader,
    digest: Digest = sha1,
  ): Promise<ObfuscatedFonts> {
    const sources = new Map<string, FontSource>();
    try {
      const text = await loadText(resolveURL('META-INF/encryption.xml', rootURL));
      for (const resource of parseEncryptionDocument(text)) {
        const url = resolveURL(resource.uri, rootURL);
        sources.set(resourceKey(url), { algorithm: resource.algorithm, url });
      }
    } catch {
      // No metadata: nothing is obfuscated.
    }
    return new ObfuscatedFonts(sources, identifiers, loadBinary, digest);
  }

  get isEmpty(): boolean {
    return this.sources.size === 0;
  }

  // The restored bytes of an obfuscated font, read once per book; undefined when the URL is not
  // an obfuscated font or the book lacks the identifier of its key.
  restoredFont(url: string): Promise<ArrayBuffer | undefined> {
    let key: string;
    try {
      key = resourceKey(url);
    } catch {
      return Promise.resolve(undefined);
    }
    const source = this.sources.get(key);
    if (source === undefined) return Promise.resolve(undefined);
    let restoring = this.restored.get(key);
    if (restoring === undefined) {
      restoring = (async () => {
        const obfuscationKeyBytes = await obfuscationKey(source.algorithm, this.identifiers, this.digest);
        if (obfuscationKeyBytes === undefined) return undefined;
        return deobfuscate(await this.loadBinary(source.url), obfuscationKeyBytes, source.algorithm);
      })();
      restoring.catch(() => this.restored.delete(key));
      this.restored.set(key, restoring);
    }
    return restoring;
  }

  // Adds the restored faces that the document's style sheets ask for, and waits until they are
  // loaded. Faces that fail are skipped: the book's fallback fonts stand in.
  async register(document: Document): Promise<void> {
    if (this.isEmpty) return;
    const view = document.defaultView as (Window & typeof globalThis) | null;
    if (view === null || document.fonts === undefined) return;
    const found: { rule: CSSFontFaceRule; base: string }[] = [];
    const seen = new Set<CSSStyleSheet>();
    for (const sheet of Array.from(document.styleSheets)) fontFaceRules(sheet, found, seen);
    // A sheet imported by two others shows its rules twice; each face is added once.
    const added = new Set<string>();
    const additions = found.map(async ({ rule, base }) => {
      const style = rule.style;
      const descriptors: FontFaceDescriptors = {};
      const weight = style.getPropertyValue('font-weight');
      const fontStyle = style.getPropertyValue('font-style');
      const stretch = style.getPropertyValue('font-stretch');
      const range = style.getPropertyValue('unicode-range');
      if (weight !== '') descriptors.weight = weight;
      if (fontStyle !== '') descriptors.style = fontStyle;
      if (stretch !== '') descriptors.stretch = stretch;
      if (range !== '') descriptors.unicodeRange = range;
      const family = unquotedFamily(style.getPropertyValue('font-family'));
      for (const href of sourceURLs(style.getPropertyValue('src'))) {
        let url: string;
        try {
          url = resolveURL(href, base);
        } catch {
          continue;
        }
        const identity = JSON.stringify([family, descriptors, resourceKey(url)]);
        if (added.has(identity)) return;
        if (!this.sources.has(resourceKey(url))) continue;
        added.add(identity);
        const data = await this.restoredFont(url).catch(() => undefined);
        if (data === undefined) continue;
        // The face belongs to the section's own realm, with a copy of the bytes for each document.
        const face = new view.FontFace(family, data.slice(0), descriptors);
        try {
          await face.load();
          document.fonts.add(face);
          return;
        } catch {
          // Not a font after all; the next source of the rule may be.
        }
      }
    });
    await Promise.all(additions);
  }
}
