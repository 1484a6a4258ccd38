// URLs of a publication. Absolute URLs carry the publication's id, which is new for every open, so
// what is stored or handed out (spine hrefs, contents hrefs) is relative to the package directory.

export function resolveURL(href: string, base: string): string {
  return new URL(href, base).href;
}

// An address whose root stands for the publication's root while a link is resolved.
const virtualRoot = 'tomekeeper-container://root/';

// Resolves `href` against `base`, an address inside the publication whose root is
// `publicationRoot`, as though that root were the root of the address: ".." steps stop there and a
// path that starts with "/" starts there, as readers resolve a book's links. Undefined for a
// reference to another host of the publication's own scheme.
export function resolveWithinPublication(href: string, base: string, publicationRoot: string): string | undefined {
  if (!base.startsWith(publicationRoot)) return resolveURL(href, base);
  const rebased = new URL(href, virtualRoot + base.slice(publicationRoot.length));
  if (rebased.protocol !== new URL(virtualRoot).protocol) return rebased.href;
  if (!rebased.href.startsWith(virtualRoot)) return undefined;
  return publicationRoot + rebased.href.slice(virtualRoot.length);
}

export function splitFragment(url: string): { resource: string; fragment: string | undefined } {
  const hash = url.indexOf('#');
  if (hash < 0) return { resource: url, fragment: undefined };
  return { resource: url.slice(0, hash), fragment: url.slice(hash + 1) };
}

function safeDecode(text: string): string {
  try {
    return decodeURIComponent(text);
  } catch {
    return text;
  }
}

// A form of a URL without fragment or query that compares equal for differently escaped spellings
// of one resource.
export function resourceKey(url: string): string {
  const parsed = new URL(url);
  return `${parsed.protocol}//${parsed.host}${safeDecode(parsed.pathname)}`;
}

// Expresses `absolute` relative to the directory URL `baseDirectory` (which ends in "/"), going up
// with ".." where the target lies outside it. Fragments are kept.
export function relativeHref(absolute: string, baseDirectory: string): string {
  const target = new URL(absolute);
  const base = new URL(baseDirectory);
  if (target.protocol !== base.protocol || target.host !== base.host) return absolute;
  const targetParts = target.pathname.split('/');
  const baseParts = base.pathname.split('/');
  baseParts.pop();
  let common = 0;
  while (common < baseParts.length && common < targetParts.length - 1 && baseParts[common] === targetParts[common]) common += 1;
  const upward = baseParts.slice(common).map(() => '..');
  const path = [...upward, ...targetParts.slice(common)].join('/');
  return `${path}${target.search}${target.hash}`;
}

// The root of the container that holds the package: the publication's own directory on the
// scheme, whose first path segment is the publication's id.
export function containerRootURL(packageURL: string): string {
  const url = new URL(packageURL);
  const firstSegment = url.pathname.split('/')[1] ?? '';
  return `${url.protocol}//${url.host}/${firstSegment}/`;
}
