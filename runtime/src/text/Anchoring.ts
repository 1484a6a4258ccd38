// Finding a quoted passage again in a section's text, with the words before and after it as
// witnesses. The comparison is exact except for white space (a run of it matches any other run),
// because a highlight belongs to those very words: when the text around it changed so much that the
// witnesses no longer agree, the passage is left unplaced rather than put on other words.
import type { TextContext } from '../bridge/records';

export type AnchorDecision =
  | { kind: 'placed'; start: number; end: number }
  | { kind: 'unresolved'; reason: 'empty-quote' | 'not-found' | 'context-changed' | 'ambiguous' };

// A quote this long that occurs once in the section is taken even when its context changed: such a
// passage does not occur by chance.
export const distinctiveQuoteLength = 24;
// At least this share of the context's characters must agree for a quote that is short or not unique.
export const requiredContextAgreement = 0.5;

interface CollapsedText {
  text: string;
  // Original position of each collapsed character, plus one entry for the end.
  positions: number[];
  // Original end of each collapsed character (a collapsed space ends after its whole run).
  ends: number[];
}

function isSpace(character: string): boolean {
  return /\s/.test(character);
}

export function collapseWhiteSpace(text: string): string {
  return text.replace(/\s+/g, ' ');
}

function collapsedView(text: string): CollapsedText {
  let result = '';
  const positions: number[] = [];
  const ends: number[] = [];
  for (let index = 0; index < text.length; index += 1) {
    const character = text[index] as string;
    if (isSpace(character)) {
      if (result.endsWith(' ') && positions.length > 0) {
        ends[ends.length - 1] = index + 1;
        continue;
      }
      result += ' ';
    } else {
      result += character;
    }
    positions.push(index);
    ends.push(index + 1);
  }
  positions.push(text.length);
  return { text: result, positions, ends };
}

// The end of `needle` when `text` holds it at `position`, white space runs counting as equal.
export function matchCollapsedAt(text: string, position: number, needle: string): number | undefined {
  const wanted = collapseWhiteSpace(needle).trim();
  if (wanted.length === 0) return undefined;
  let cursor = position;
  while (cursor < text.length && isSpace(text[cursor] as string)) cursor += 1;
  for (let index = 0; index < wanted.length; index += 1) {
    const character = wanted[index] as string;
    if (character === ' ') {
      if (cursor >= text.length || !isSpace(text[cursor] as string)) return undefined;
      while (cursor < text.length && isSpace(text[cursor] as string)) cursor += 1;
      continue;
    }
    if (text[cursor] !== character) return undefined;
    cursor += 1;
  }
  return cursor;
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

export interface AnchorCandidate {
  start: number;
  end: number;
  // Characters of the prefix (from its end) and of the suffix (from its start) that agree.
  agreement: number;
}

// Every occurrence of the quote with how far its context agrees, in text order.
export function anchorCandidates(text: string, quote: TextContext): { candidates: AnchorCandidate[]; contextLength: number } {
  const exact = collapseWhiteSpace(quote.exact).trim();
  // White space at the edges of the quote and its context is not compared: a selection may or may
  // not have taken the space after a word.
  const prefix = collapseWhiteSpace(quote.prefix ?? '').trim();
  const suffix = collapseWhiteSpace(quote.suffix ?? '').trim();
  const view = collapsedView(text);
  const candidates: AnchorCandidate[] = [];
  if (exact.length === 0) return { candidates, contextLength: prefix.length + suffix.length };
  for (let found = view.text.indexOf(exact); found >= 0; found = view.text.indexOf(exact, found + 1)) {
    const before = view.text.slice(Math.max(0, found - prefix.length - 1), found).trimEnd();
    const after = view.text.slice(found + exact.length, found + exact.length + suffix.length + 1).trimStart();
    candidates.push({
      start: view.positions[found] as number,
      end: view.ends[found + exact.length - 1] as number,
      agreement: commonSuffixLength(before, prefix) + commonPrefixLength(after, suffix),
    });
  }
  return { candidates, contextLength: prefix.length + suffix.length };
}

// Decides where a quote stands in `text`. `expectedPosition` (where the stored position says it
// was) breaks a tie between equally good candidates; without it a tie is left unresolved.
export function anchorQuote(text: string, quote: TextContext, expectedPosition?: number): AnchorDecision {
  const exact = collapseWhiteSpace(quote.exact).trim();
  if (exact.length === 0) return { kind: 'unresolved', reason: 'empty-quote' };
  const { candidates, contextLength } = anchorCandidates(text, quote);
  if (candidates.length === 0) return { kind: 'unresolved', reason: 'not-found' };
  if (candidates.length === 1 && (contextLength === 0 || exact.length >= distinctiveQuoteLength)) {
    const only = candidates[0] as AnchorCandidate;
    return { kind: 'placed', start: only.start, end: only.end };
  }
  if (contextLength === 0) {
    return pickNearest(candidates, expectedPosition) ?? { kind: 'unresolved', reason: 'ambiguous' };
  }
  const acceptable = candidates.filter((candidate) => candidate.agreement / contextLength >= requiredContextAgreement);
  if (acceptable.length === 0) return { kind: 'unresolved', reason: 'context-changed' };
  const best = Math.max(...acceptable.map((candidate) => candidate.agreement));
  const top = acceptable.filter((candidate) => candidate.agreement === best);
  if (top.length === 1) {
    const only = top[0] as AnchorCandidate;
    return { kind: 'placed', start: only.start, end: only.end };
  }
  return pickNearest(top, expectedPosition) ?? { kind: 'unresolved', reason: 'ambiguous' };
}

function pickNearest(candidates: AnchorCandidate[], expectedPosition: number | undefined): AnchorDecision | undefined {
  if (expectedPosition === undefined) return undefined;
  let best: AnchorCandidate | undefined;
  for (const candidate of candidates) {
    if (best === undefined || Math.abs(candidate.start - expectedPosition) < Math.abs(best.start - expectedPosition)) best = candidate;
  }
  return best === undefined ? undefined : { kind: 'placed', start: best.start, end: best.end };
}
