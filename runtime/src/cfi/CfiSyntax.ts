// The text form of an EPUB canonical fragment identifier: parsing and writing. Only syntax lives
// here; what a path means in a document is CfiDocument's business.

export interface CfiStep {
  // Even numbers name element children, odd numbers the runs of text between them.
  index: number;
  id?: string;
}

export interface CfiTextAssertion {
  before?: string;
  after?: string;
  sideBias?: 'before' | 'after';
}

export interface CfiOffset {
  character?: number;
  temporal?: number;
  spatial?: { x: number; y: number };
  assertion?: CfiTextAssertion;
}

// A path is split by indirections ("!"): the first segment walks the package document, the second
// the content document that the first leads to.
export interface CfiPath {
  segments: CfiStep[][];
  offset?: CfiOffset;
}

export interface ParsedCfi {
  path: CfiPath;
  // Present for a range: start and end continue the path's last segment.
  range?: { start: CfiPath; end: CfiPath };
}

export class CfiSyntaxError extends Error {
  constructor(message: string, readonly position: number) {
    super(`${message} at ${position}`);
    this.name = 'CfiSyntaxError';
  }
}

const specialCharacters = new Set(['^', '[', ']', '(', ')', ',', ';', '=']);

export function escapeCfiText(text: string): string {
  let result = '';
  for (const character of text) result += specialCharacters.has(character) ? `^${character}` : character;
  return result;
}

class Reader {
  position = 0;

  constructor(readonly text: string) {}

  peek(): string | undefined {
    return this.text[this.position];
  }

  atEnd(): boolean {
    return this.position >= this.text.length;
  }

  expect(character: string): void {
    if (this.text[this.position] !== character) throw new CfiSyntaxError(`expected "${character}"`, this.position);
    this.position += 1;
  }

  integer(): number {
    const match = /^(0|[1-9][0-9]*)/.exec(this.text.slice(this.position));
    if (match === null) throw new CfiSyntaxError('expected an integer', this.position);
    this.position += match[0].length;
    return Number(match[0]);
  }

  number(): number {
    const match = /^(0|[1-9][0-9]*)(\.[0-9]*[1-9])?/.exec(this.text.slice(this.position));
    if (match === null) throw new CfiSyntaxError('expected a number', this.position);
    this.position += match[0].length;
    return Number(match[0]);
  }

  // Reads escaped text up to one of the stop characters, which is left unread.
  escapedText(stops: string): string {
    let result = '';
    while (!this.atEnd()) {
      const character = this.text[this.position] as string;
      if (character === '^') {
        const escaped = this.text[this.position + 1];
        if (escaped === undefined) throw new CfiSyntaxError('dangling escape', this.position);
        result += escaped;
        this.position += 2;
        continue;
      }
      if (stops.includes(character)) return result;
      if (specialCharacters.has(character)) throw new CfiSyntaxError(`unescaped "${character}"`, this.position);
      result += character;
      this.position += 1;
    }
    throw new CfiSyntaxError('unterminated assertion', this.position);
  }
}

function readStep(reader: Reader): CfiStep {
  reader.expect('/');
  const step: CfiStep = { index: reader.integer() };
  if (reader.peek() === '[') {
    reader.expect('[');
    const id = reader.escapedText(';]');
    // Parameters of an id assertion carry nothing that this reader uses.
    while (reader.peek() === ';') {
      reader.expect(';');
      reader.escapedText(';]');
    }
    reader.expect(']');
    if (id.length > 0) step.id = id;
  }
  return step;
}

function readTextAssertion(reader: Reader): CfiTextAssertion {
  reader.expect('[');
  const assertion: CfiTextAssertion = {};
  const before = reader.escapedText(',;]');
  if (before.length > 0) assertion.before = before;
  if (reader.peek() === ',') {
    reader.expect(',');
    const after = reader.escapedText(';]');
    if (after.length > 0) assertion.after = after;
  }
  while (reader.peek() === ';') {
    reader.expect(';');
    const name = reader.escapedText('=;]');
    let value = '';
    if (reader.peek() === '=') {
      reader.expect('=');
      value = reader.escapedText(';]');
    }
    if (name === 's' && (value === 'a' || value === 'b')) assertion.sideBias = value === 'a' ? 'after' : 'before';
  }
  reader.expect(']');
  return assertion;
}

function readOffset(reader: Reader): CfiOffset | undefined {
  const offset: CfiOffset = {};
  const next = reader.peek();
  if (next === ':') {
    reader.expect(':');
    offset.character = reader.integer();
  } else if (next === '~') {
    reader.expect('~');
    offset.temporal = reader.number();
  }
  if (reader.peek() === '@') {
    reader.expect('@');
    const x = reader.number();
    reader.expect(':');
    offset.spatial = { x, y: reader.number() };
  }
  if (offset.character === undefined && offset.temporal === undefined && offset.spatial === undefined) return undefined;
  if (reader.peek() === '[') offset.assertion = readTextAssertion(reader);
  return offset;
}

// Reads steps and indirections until a "," or ")" or an offset ends the path.
function readPath(reader: Reader, requireStep: boolean): CfiPath {
  const segments: CfiStep[][] = [[]];
  if (requireStep && reader.peek() !== '/') throw new CfiSyntaxError('a path begins with a step', reader.position);
  for (;;) {
    const next = reader.peek();
    if (next === '/') {
      (segments[segments.length - 1] as CfiStep[]).push(readStep(reader));
    } else if (next === '!') {
      reader.expect('!');
      if (reader.peek() !== '/') throw new CfiSyntaxError('an indirection is followed by a step', reader.position);
      segments.push([]);
    } else {
      break;
    }
  }
  const path: CfiPath = { segments };
  const offset = readOffset(reader);
  if (offset !== undefined) path.offset = offset;
  return path;
}

export function parseCfi(text: string): ParsedCfi {
  const reader = new Reader(text.trim());
  for (const character of 'epubcfi(') reader.expect(character);
  const path = readPath(reader, true);
  const parsed: ParsedCfi = { path };
  if (reader.peek() === ',') {
    if (path.offset !== undefined) throw new CfiSyntaxError('the common part of a range ends at a step', reader.position);
    reader.expect(',');
    const start = readPath(reader, false);
    reader.expect(',');
    const end = readPath(reader, false);
    parsed.range = { start, end };
  }
  reader.expect(')');
  if (!reader.atEnd()) throw new CfiSyntaxError('text after the closing parenthesis', reader.position);
  return parsed;
}

function writeStep(step: CfiStep): string {
  return step.id === undefined ? `/${step.index}` : `/${step.index}[${escapeCfiText(step.id)}]`;
}

function writeOffset(offset: CfiOffset): string {
  let text = '';
  if (offset.character !== undefined) text += `:${offset.character}`;
  else if (offset.temporal !== undefined) text += `~${offset.temporal}`;
  if (offset.spatial !== undefined) text += `@${offset.spatial.x}:${offset.spatial.y}`;
  const assertion = offset.assertion;
  if (assertion !== undefined && (assertion.before !== undefined || assertion.after !== undefined || assertion.sideBias !== undefined)) {
    text += `[${escapeCfiText(assertion.before ?? '')}`;
    if (assertion.after !== undefined) text += `,${escapeCfiText(assertion.after)}`;
    if (assertion.sideBias !== undefined) text += `;s=${assertion.sideBias === 'after' ? 'a' : 'b'}`;
    text += ']';
  }
  return text;
}

export function writeCfiPath(path: CfiPath): string {
  const steps = path.segments.map((segment) => segment.map(writeStep).join('')).join('!');
  return path.offset === undefined ? steps : steps + writeOffset(path.offset);
}

export function writeCfi(cfi: ParsedCfi): string {
  const body = writeCfiPath(cfi.path);
  if (cfi.range === undefined) return `epubcfi(${body})`;
  return `epubcfi(${body},${writeCfiPath(cfi.range.start)},${writeCfiPath(cfi.range.end)})`;
}
