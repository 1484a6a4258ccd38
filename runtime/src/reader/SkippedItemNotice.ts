// Where the spine names an item that the reader cannot show and that has no fallback it can, the
// book opens without it, and a short notice says so where it would have been: at the start of the
// section that follows it, or at the end of the last section. The notice is the runtime's own
// node, which locators, search and highlights look through.
import { runtimeNodeAttribute } from '../cfi/ignoredNodes';
import type { SkippedSpineItem } from '../publication/PackageDocument';

export type NoticePlace = 'start' | 'end';

export function noticeText(item: SkippedSpineItem): string {
  const type = item.mediaType === undefined ? 'not listed in the book' : item.mediaType;
  return `A part of this book is not shown here: “${item.href}” (${type}) is of a kind this reader cannot display.`;
}

// Puts one notice for `items` at the start or the end of the section's body; nothing for none.
export function insertSkippedItemNotice(doc: Document, items: readonly SkippedSpineItem[], place: NoticePlace): void {
  const body = doc.body;
  if (items.length === 0 || body === null) return;
  const notice = doc.createElementNS(body.namespaceURI, 'aside');
  notice.setAttribute(runtimeNodeAttribute, 'skipped-item');
  notice.setAttribute('role', 'note');
  const style = (notice as HTMLElement).style;
  style.setProperty('margin', '1em 0');
  style.setProperty('padding', '0.5em 0.75em');
  style.setProperty('border-inline-start', '3px solid currentColor');
  style.setProperty('opacity', '0.7');
  style.setProperty('font-size', '0.85em');
  style.setProperty('font-style', 'italic');
  for (const item of items) {
    const line = doc.createElementNS(body.namespaceURI, 'p');
    line.textContent = noticeText(item);
    notice.append(line);
  }
  if (place === 'start') body.prepend(notice);
  else body.append(notice);
}
