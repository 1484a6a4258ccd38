// Folding text for matching the way a reader expects: letter case, diacritics, compatibility forms
// (ligatures, full-width letters), typographic apostrophes and runs of white space do not count.
// The folded text keeps, for each of its UTF-16 units, the span of the original text it came from,
// so a match in the folded text maps back to the original characters.
//
// All Unicode knowledge comes from the platform: `normalize('NFKD')` for decomposition, the
// `Diacritic`, `Mark` and `Default_Ignorable_Code_Point` properties of regular expressions, and the
// locale's own case mapping.

export interface FoldedText {
  // The folded text: lower case, no diacritics, one space for each run of white space.
  readonly text: string;
  // For folded unit i, the original text's [starts[i], ends[i]).
  readonly starts: Uint32Array;
  readonly ends: Uint32Array;
}

export interface OriginalSpan {
  start: number;
  end: number;
}

const diacriticMark = /^(?=\p{M})\p{Diacritic}$/u;
const ignorable = /^\p{Default_Ignorable_Code_Point}$/u;
const whiteSpace = /^\s$/u;

// Typographic quotes that a reader types as the plain ones.
const quoteEquivalents = new Map<string, string>([
  ['\u2018', "'"],
  ['\u2019', "'"],
  ['\u02bc', "'"],
  ['\u201c', '"'],
  ['\u201d', '"'],
]);

// A locale tag the platform accepts, or undefined for the default case mapping.
export function canonicalLocale(language: string | undefined): string | undefined {
  if (language === undefined || language.trim().length === 0) return undefined;
  try {
    return Intl.getCanonicalLocales(language.trim())[0];
  } catch {
    return undefined;
  }
}

export class TextFolder {
  private readonly locale: string | undefined;
  private readonly cache = new Map<number, string>();

  // False for locales (Turkish, Azeri) whose case mapping of the Latin letters differs from ASCII's.
  private readonly asciiCaseIsPlain: boolean;

  constructor(language?: string) {
    this.locale = canonicalLocale(language);
    this.asciiCaseIsPlain = 'I'.toLocaleLowerCase(this.locale) === 'i' && 'i'.toLocaleUpperCase(this.locale) === 'I';
  }

  // The folded form of one code point; the empty string for a mark or an invisible character.
  foldCodePoint(codePoint: number): string {
    if (codePoint < 0x80) {
      const isLetter = (codePoint >= 0x41 && codePoint <= 0x5a) || (codePoint >= 0x61 && codePoint <= 0x7a);
      if (codePoint === 0x20 || (codePoint >= 0x09 && codePoint <= 0x0d)) return ' ';
      if (!isLetter) return String.fromCharCode(codePoint);
      if (this.asciiCaseIsPlain) return String.fromCharCode(codePoint | 0x20);
    }
    const cached = this.cache.get(codePoint);
    if (cached !== undefined) return cached;
    const folded = this.foldSlowly(String.fromCodePoint(codePoint));
    this.cache.set(codePoint, folded);
    return folded;
  }

  private foldSlowly(character: string): string {
    if (ignorable.test(character)) return '';
    if (whiteSpace.test(character)) return ' ';
    // Upper then lower case approximates full case folding: "ß" becomes "ss", a final sigma "σ".
    // Case comes first, in the book's locale, so that a Turkish "İ" lowers to "i" and not to a
    // dotless "ı"; compatibility forms may bring capitals back, hence the second lowering.
    const cased = character.toLocaleUpperCase(this.locale).toLocaleLowerCase(this.locale);
    const plain = this.stripDiacritics(cased).toLocaleLowerCase(this.locale);
    let result = '';
    for (const part of plain) result += quoteEquivalents.get(part) ?? part;
    return result;
  }

  private stripDiacritics(text: string): string {
    let result = '';
    for (const part of text.normalize('NFKD')) {
      if (!diacriticMark.test(part) && !ignorable.test(part)) result += part;
    }
    return result;
  }

  // Folds `original`. `boundaries` are sorted positions of the original text where a block of text
  // ends and another begins with no white space between them ("end.</p><p>Start"); the folded text
  // has a space there, so words of two paragraphs never run together.
  fold(original: string, boundaries: readonly number[] = []): FoldedText {
    let capacity = original.length + boundaries.length + 16;
    let starts = new Uint32Array(capacity);
    let ends = new Uint32Array(capacity);
    const pieces: string[] = [];
    let length = 0;
    // A run of white space (or a boundary) not yet written: it becomes one space before the next
    // visible character, and is dropped at the start and the end.
    let spaceStart = -1;
    let spaceEnd = -1;
    let nextBoundary = 0;

    const push = (unit: string, start: number, end: number): void => {
      if (length === capacity) {
        capacity *= 2;
        const grownStarts = new Uint32Array(capacity);
        const grownEnds = new Uint32Array(capacity);
        grownStarts.set(starts);
        grownEnds.set(ends);
        starts = grownStarts;
        ends = grownEnds;
      }
      pieces.push(unit);
      starts[length] = start;
      ends[length] = end;
      length += 1;
    };
    const noteSpace = (start: number, end: number): void => {
      if (spaceStart < 0) spaceStart = start;
      spaceEnd = end;
    };

    for (let position = 0; position < original.length; ) {
      while (nextBoundary < boundaries.length && (boundaries[nextBoundary] as number) <= position) {
        const boundary = boundaries[nextBoundary] as number;
        if (boundary === position) noteSpace(position, position);
        nextBoundary += 1;
      }
      const codePoint = original.codePointAt(position) as number;
      const width = codePoint > 0xffff ? 2 : 1;
      const end = position + width;
      const folded = codePoint === 0x20 || codePoint === 0x0a || codePoint === 0x09 || codePoint === 0x0d ? ' ' : this.foldCodePoint(codePoint);
      if (folded === ' ') {
        noteSpace(position, end);
      } else if (folded.length === 0) {
        // A mark or an invisible character belongs to the character before it.
        if (length > 0 && spaceStart < 0) ends[length - 1] = end;
      } else {
        if (spaceStart >= 0 && length > 0) push(' ', spaceStart, spaceEnd);
        spaceStart = -1;
        for (let unit = 0; unit < folded.length; unit += 1) push(folded[unit] as string, position, end);
      }
      position = end;
    }
    return { text: pieces.join(''), starts: starts.subarray(0, length), ends: ends.subarray(0, length) };
  }

  // The folded form of what a reader typed: trimmed, white space collapsed.
  foldQuery(query: string): string {
    return this.fold(query).text;
  }
}

// Every non-overlapping occurrence of `foldedQuery` in `folded`, as spans of the original text.
export function findFoldedMatches(folded: FoldedText, foldedQuery: string, limit = Number.POSITIVE_INFINITY): OriginalSpan[] {
  const matches: OriginalSpan[] = [];
  if (foldedQuery.length === 0) return matches;
  for (let found = folded.text.indexOf(foldedQuery); found >= 0 && matches.length < limit; ) {
    matches.push({ start: folded.starts[found] as number, end: folded.ends[found + foldedQuery.length - 1] as number });
    found = folded.text.indexOf(foldedQuery, found + foldedQuery.length);
  }
  return matches;
}
