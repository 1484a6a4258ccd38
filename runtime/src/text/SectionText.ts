// What a section's text looks like to a reader, beyond the bare run of characters that TextIndex
// holds: where one block of text ends and the next begins, and a short excerpt around a passage.
import { isRuntimeNode, isTextLike } from '../cfi/ignoredNodes';
import type { TextIndex } from '../cfi/TextIndex';

// Elements that start a new block of text, by their local name. Text on either side of one of
// these reads as two words even when no white space separates them in the document.
export const blockElements = new Set([
  'address', 'article', 'aside', 'blockquote', 'body', 'br', 'caption', 'dd', 'details', 'dialog', 'div', 'dl', 'dt',
  'fieldset', 'figcaption', 'figure', 'footer', 'form', 'h1', 'h2', 'h3', 'h4', 'h5', 'h6', 'header', 'hgroup', 'hr',
  'li', 'main', 'nav', 'ol', 'p', 'pre', 'section', 'summary', 'table', 'tbody', 'td', 'tfoot', 'th', 'thead', 'tr', 'ul',
]);

// Positions in the text of TextIndex(root) where a block begins or ends, ascending, without
// duplicates. The walk is the same as TextIndex's, so the positions agree with its text.
export function blockBoundaries(root: Node): number[] {
  const boundaries: number[] = [];
  let length = 0;
  const mark = (): void => {
    if (length > 0 && boundaries[boundaries.length - 1] !== length) boundaries.push(length);
  };
  const walk = (node: Node): void => {
    for (let child = node.firstChild; child !== null; child = child.nextSibling) {
      if (isTextLike(child)) {
        length += child.data.length;
      } else if (child.nodeType === Node.ELEMENT_NODE && !isRuntimeNode(child)) {
        const isBlock = blockElements.has((child as Element).localName.toLowerCase());
        if (isBlock) mark();
        walk(child);
        if (isBlock) mark();
      }
    }
  };
  walk(root);
  return boundaries;
}

export const excerptCharactersBefore = 50;
export const excerptCharactersAfter = 70;

// The text of [from, to) with a space at each block boundary inside it.
function sliceWithBoundaries(text: string, from: number, to: number, boundaries: readonly number[]): string {
  let result = '';
  let cursor = from;
  for (const boundary of boundaries) {
    if (boundary <= from) continue;
    if (boundary >= to) break;
    result += `${text.slice(cursor, boundary)} `;
    cursor = boundary;
  }
  return result + text.slice(cursor, to);
}

// A one-line excerpt around text[start, end): white space collapsed, blocks kept apart by a space,
// cut at word boundaries, with an ellipsis where the text goes on.
export function excerptAround(text: string, start: number, end: number, boundaries: readonly number[] = []): string {
  const from = Math.max(0, start - excerptCharactersBefore);
  const to = Math.min(text.length, end + excerptCharactersAfter);
  let before = sliceWithBoundaries(text, from, start, boundaries).replace(/\s+/g, ' ');
  const passage = sliceWithBoundaries(text, start, end, boundaries).replace(/\s+/g, ' ');
  let after = sliceWithBoundaries(text, end, to, boundaries).replace(/\s+/g, ' ');
  if (boundaries.includes(start)) before += ' ';
  if (boundaries.includes(end)) after = ` ${after}`;
  // The word cut in half at either end is dropped.
  if (from > 0) {
    const firstSpace = before.indexOf(' ');
    before = firstSpace >= 0 ? before.slice(firstSpace + 1) : '';
  }
  if (to < text.length) {
    const lastSpace = after.lastIndexOf(' ');
    after = lastSpace >= 0 ? after.slice(0, lastSpace) : '';
  }
  const excerpt = `${before}${passage}${after}`.replace(/\s+/g, ' ').trim();
  return `${from > 0 ? '…' : ''}${excerpt}${to < text.length ? '…' : ''}`;
}

// The DOM range of text[start, end) of a TextIndex: it starts in the node that holds the first
// character and ends in the node that holds the last, so neighbouring markup stays outside.
export function rangeForSpan(index: TextIndex, start: number, end: number): Range | undefined {
  const from = index.pointAt(start, false);
  const to = index.pointAt(end, true);
  if (from === undefined || to === undefined) return undefined;
  const range = from.node.ownerDocument.createRange();
  range.setStart(from.node, from.offset);
  range.setEnd(to.node, to.offset);
  return range;
}
