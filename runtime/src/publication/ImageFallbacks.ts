// Images of a section whose manifest item is of a type that no browser draws are pointed at the
// item of their fallback chain that one draws, before the section is first laid out.
import { resolveURL, resourceKey } from './hrefs';

const svgNamespace = 'http://www.w3.org/2000/svg';
const xlinkNamespace = 'http://www.w3.org/1999/xlink';
const decodeWaitMilliseconds = 3000;

// The URL to show instead of `reference`, written in the section at `sectionURL`, if any.
function fallbackFor(reference: string, sectionURL: string, fallbacks: ReadonlyMap<string, string>): string | undefined {
  try {
    return fallbacks.get(resourceKey(resolveURL(reference, sectionURL)));
  } catch {
    return undefined;
  }
}

// Rewrites the references of `doc`'s images, and waits a while at most for the new ones to decode,
// so that the first layout measures them.
export async function applyImageFallbacks(doc: Document, sectionURL: string, fallbacks: ReadonlyMap<string, string>): Promise<void> {
  if (fallbacks.size === 0) return;
  const changed: HTMLImageElement[] = [];
  for (const image of Array.from(doc.querySelectorAll('img[src]'))) {
    const fallback = fallbackFor(image.getAttribute('src') as string, sectionURL, fallbacks);
    if (fallback === undefined) continue;
    image.setAttribute('src', fallback);
    changed.push(image as HTMLImageElement);
  }
  for (const image of Array.from(doc.getElementsByTagNameNS(svgNamespace, 'image'))) {
    for (const [namespace, name] of [[null, 'href'], [xlinkNamespace, 'href']] as const) {
      const reference = image.getAttributeNS(namespace, name);
      const fallback = reference === null ? undefined : fallbackFor(reference, sectionURL, fallbacks);
      if (fallback !== undefined) image.setAttributeNS(namespace, name, fallback);
    }
  }
  if (changed.length === 0) return;
  const decoded = Promise.all(changed.map((image) => image.decode().catch(() => undefined)));
  await Promise.race([decoded, new Promise((resolve) => setTimeout(resolve, decodeWaitMilliseconds))]);
}
