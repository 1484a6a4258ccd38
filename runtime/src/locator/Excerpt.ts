// Excerpts: the text at a position with some words around it, and finding such an excerpt again in
// a section's text, nearest to where the progression says it should be.
import type { TextContext } from '../bridge/records';

export const excerptExactLength = 48;
export const excerptContextLength = 32;

function collapse(text: string): string {
  return text.replace(/\s+/g, ' ');
}

// The excerpt at `position`: white space runs become single spaces, the exact part starts at the
// position, prefix and suffix hold what comes before and after.
export function excerptAt(text: string, position: number): TextContext | undefined {
  const start = Math.max(0, Math.min(position, text.length));
  const exact = collapse(text.slice(start, start + excerptExactLength));
  if (exact.trim().length === 0) return undefined;
  const context: TextContext = { exact };
  const prefix = collapse(text.slice(Math.max(0, start - excerptContextLength), start));
  const suffix = collapse(text.slice(start + excerptExactLength, start + excerptExactLength + excerptContextLength));
  if (prefix.length > 0) context.prefix = prefix;
  if (suffix.length > 0) context.suffix = suffix;
  return context;
}

// A view of a text with white space collapsed, mapping positions back to the original.
interface CollapsedText {
  text: string;
  originalPositions: number[];
}

function collapsedWithMap(text: string): CollapsedText {
  let result = '';
  const originalPositions: number[] = [];
  let inSpace = false;
  for (let index = 0; index < text.length; index += 1) {
    const character = text[index] as string;
    if (/\s/.test(character)) {
      if (inSpace) continue;
      inSpace = true;
      result += ' ';
    } else {
      inSpace = false;
      result += character;
    }
    originalPositions.push(index);
  }
  originalPositions.push(text.length);
  return { text: result, originalPositions };
}

function commonSuffixLength(a: string, b: string): number {
  let length = 0;
  while (length < a.length && length < b.length && a[a.length - 1 - length] === b[b.length - 1 - length]) length += 1;
  return length;
}

function commonPrefixLength(a: string, b: string): number {
  let length = 0;
  while (length < a.length && length < b.length && a[length] === b[length]) length += 1;
  return length;
}

// Finds the excerpt in `text` and returns the position of its exact part, or undefined. Among
// several matches it prefers the one whose prefix and suffix agree best, then the one nearest to
// `expectedPosition`.
export function findExcerpt(text: string, excerpt: TextContext, expectedPosition?: number): number | undefined {
  const exact = collapse(excerpt.exact);
  if (exact.trim().length === 0) return undefined;
  const haystack = collapsedWithMap(text);
  const prefix = collapse(excerpt.prefix ?? '');
  const suffix = collapse(excerpt.suffix ?? '');
  let best: { position: number; score: number; distance: number } | undefined;
  for (let found = haystack.text.indexOf(exact); found >= 0; found = haystack.text.indexOf(exact, found + 1)) {
    const before = haystack.text.slice(Math.max(0, found - prefix.length), found);
    const after = haystack.text.slice(found + exact.length, found + exact.length + suffix.length);
    const score = commonSuffixLength(before, prefix) + commonPrefixLength(after, suffix);
    const position = haystack.originalPositions[found] as number;
    const distance = expectedPosition === undefined ? 0 : Math.abs(position - expectedPosition);
    if (best === undefined || score > best.score || (score === best.score && distance < best.distance)) {
      best = { position, score, distance };
    }
  }
  return best?.position;
}
