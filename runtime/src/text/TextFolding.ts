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

// The folded text as it is built: its pieces and, per unit, the original span.
class FoldBuffer {
  private readonly pieces: string[] = [];
  private starts: Uint32Array;
  private ends: Uint32Array;
  length = 0;

  constructor(capacity: number) {
    this.starts = new Uint32Array(capacity);
    this.ends = new Uint32Array(capacity);
  }

  private reserve(units: number): void {
    if (this.length + units <= this.starts.length) return;
    let capacity = this.starts.length * 2;
    while (capacity < this.length + units) capacity *= 2;
    const starts = new Uint32Array(capacity);
    const ends = new Uint32Array(capacity);
    starts.set(this.starts);
    ends.set(this.ends);
    this.starts = starts;
    this.ends = ends;
  }

  pushUnit(unit: string, start: number, end: number): void {
    this.pushPiece(unit, start, end);
  }

  // Every unit of `piece` stands for the original [start, end).
  pushPiece(piece: string, start: number, end: number): void {
    this.reserve(piece.length);
    for (let unit = 0; unit < piece.length; unit += 1) {
      this.starts[this.length] = start;
      this.ends[this.length] = end;
      this.length += 1;
    }
    this.pieces.push(piece);
  }

  // `run` stands unit for unit for the original from `start` on.
  pushRun(run: string, start: number): void {
    this.reserve(run.length);
    const starts = this.starts;
    const ends = this.ends;
    let length = this.length;
    for (let unit = 0; unit < run.length; unit += 1) {
      starts[length] = start + unit;
      ends[length] = start + unit + 1;
      length += 1;
    }
    this.length = length;
    this.pieces.push(run);
  }

  extendLast(end: number): void {
    this.ends[this.length - 1] = end;
  }

  finish(): FoldedText {
    return { text: this.pieces.join(''), starts: this.starts.subarray(0, this.length), ends: this.ends.subarray(0, this.length) };
  }
}

// Visible ASCII, space excluded: these fold by plain lower-casing, one unit for one.
function isPrintableASCII(code: number): boolean {
  return code > 0x20 && code < 0x7f;
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
    const buffer = new FoldBuffer(original.length + boundaries.length + 16);
    // A run of white space (or a boundary) not yet written: it becomes one space before the next
    // visible character, and is dropped at the start and the end.
    let spaceStart = -1;
    let spaceEnd = -1;
    let nextBoundary = 0;
    const total = original.length;

    for (let position = 0; position < total; ) {
      while (nextBoundary < boundaries.length && (boundaries[nextBoundary] as number) <= position) {
        if (boundaries[nextBoundary] === position) {
          if (spaceStart < 0) spaceStart = position;
          spaceEnd = Math.max(spaceEnd, position);
        }
        nextBoundary += 1;
      }
      const code = original.charCodeAt(position);
      // Most of a book is printable ASCII with single spaces between words: such a run folds by one
      // lower-casing, unit for unit, up to the next block boundary.
      if (this.asciiCaseIsPlain && isPrintableASCII(code)) {
        const limit = nextBoundary < boundaries.length ? Math.min(total, boundaries[nextBoundary] as number) : total;
        let runEnd = position + 1;
        while (runEnd < limit) {
          const next = original.charCodeAt(runEnd);
          if (isPrintableASCII(next)) runEnd += 1;
          else if (next === 0x20 && runEnd + 1 < limit && isPrintableASCII(original.charCodeAt(runEnd + 1))) runEnd += 2;
          else break;
        }
        if (spaceStart >= 0 && buffer.length > 0) buffer.pushUnit(' ', spaceStart, spaceEnd);
        spaceStart = -1;
        buffer.pushRun(original.slice(position, runEnd).toLowerCase(), position);
        position = runEnd;
        continue;
      }
      const codePoint = code >= 0xd800 && code <= 0xdbff ? (original.codePointAt(position) as number) : code;
      const end = position + (codePoint > 0xffff ? 2 : 1);
      const folded = this.foldCodePoint(codePoint);
      if (folded === ' ') {
        if (spaceStart < 0) spaceStart = position;
        spaceEnd = end;
      } else if (folded.length === 0) {
        // A mark or an invisible character belongs to the character before it.
        if (buffer.length > 0 && spaceStart < 0) buffer.extendLast(end);
      } else {
        if (spaceStart >= 0 && buffer.length > 0) buffer.pushUnit(' ', spaceStart, spaceEnd);
        spaceStart = -1;
        buffer.pushPiece(folded, position, end);
      }
      position = end;
    }
    return buffer.finish();
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
