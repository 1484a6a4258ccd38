// A section's text made ready for searching, with all that a result needs and nothing of the
// document itself: the text the reader's TextIndex holds, its block boundaries, its folded form,
// and for each text node where it starts, how long it is and the CFI steps that reach it. A CFI of
// any span of the text is written from these alone, the same as cfiForRange writes it from the
// document, so a section searched once is searched again without reading, parsing or walking it.
import type { CfiSpinePosition } from '../cfi/CfiDocument';
import { escapeCfiText, type CfiStep } from '../cfi/CfiSyntax';
import { isRuntimeNode, isTextLike } from '../cfi/ignoredNodes';
import type { TextIndex } from '../cfi/TextIndex';
import { blockBoundaries } from '../text/SectionText';
import type { FoldedText, TextFolder } from '../text/TextFolding';

export interface PreparedSection {
  readonly text: string;
  readonly boundaries: readonly number[];
  // Folded at the first search that reads it: a section prepared only to be weighed never is.
  readonly folded: FoldedText;
  // The language whose folding `folded` is.
  readonly language: string | undefined;
  // Per text node, in the order of the TextIndex.
  readonly starts: readonly number[];
  readonly lengths: Uint32Array;
  // The steps from the root element to the node's parent element, shared by siblings.
  readonly parentSteps: readonly (readonly CfiStep[])[];
  // The odd step of the run of text that holds the node, and the characters of that run before it.
  readonly runSteps: Uint32Array;
  readonly runOffsets: Uint32Array;
  // What the section takes in memory, roughly, for the cache's budget.
  readonly bytes: number;
}

// Where each child of an element stands for CFI: elements by position among the counted elements,
// text nodes by their run and the characters of the run before them. Runtime nodes do not count.
interface ChildPlaces {
  elementPositions: Map<Element, number>;
  runs: Map<Node, { step: number; offset: number }>;
}

function childPlaces(parent: Node): ChildPlaces {
  const places: ChildPlaces = { elementPositions: new Map(), runs: new Map() };
  let elements = 0;
  let offset = 0;
  for (let child = parent.firstChild; child !== null; child = child.nextSibling) {
    if (child.nodeType === Node.ELEMENT_NODE) {
      if (isRuntimeNode(child)) continue;
      places.elementPositions.set(child as Element, elements);
      elements += 1;
      offset = 0;
    } else if (isTextLike(child)) {
      places.runs.set(child, { step: 2 * elements + 1, offset });
      offset += child.length;
    }
  }
  return places;
}

class StepFinder {
  private readonly places = new Map<Node, ChildPlaces>();
  private readonly steps = new Map<Element, readonly CfiStep[]>();

  placesIn(parent: Node): ChildPlaces {
    let places = this.places.get(parent);
    if (places === undefined) {
      places = childPlaces(parent);
      this.places.set(parent, places);
    }
    return places;
  }

  // The steps from the root element down to `element`; the root itself takes none.
  stepsTo(element: Element): readonly CfiStep[] {
    const known = this.steps.get(element);
    if (known !== undefined) return known;
    const root = element.ownerDocument.documentElement;
    let steps: readonly CfiStep[] = [];
    if (element !== root) {
      const parent = element.parentNode;
      const position = parent === null ? -1 : (this.placesIn(parent).elementPositions.get(element) ?? -1);
      const step: CfiStep = { index: 2 * (position + 1) };
      const id = element.getAttribute('id');
      if (id !== null && id.length > 0) step.id = id;
      const above = element.parentElement;
      steps = [...(above === null ? [] : this.stepsTo(above)), step];
    }
    this.steps.set(element, steps);
    return steps;
  }
}

// What a prepared section of these sizes takes in memory once it is folded, roughly (its folded
// text about as long as its text).
export function preparedSectionBytes(textLength: number, nodes: number, boundaries: number): number {
  return textLength * 12 + nodes * 40 + boundaries * 8 + 256;
}

// A prepared section of these parts, folded when `folded` is first read.
export function preparedSection(
  parts: Omit<PreparedSection, 'folded' | 'bytes'>,
  folder: TextFolder,
): PreparedSection {
  let folded: FoldedText | undefined;
  return {
    ...parts,
    get folded(): FoldedText {
      folded ??= folder.fold(parts.text, parts.boundaries);
      return folded;
    },
    bytes: preparedSectionBytes(parts.text.length, parts.lengths.length, parts.boundaries.length),
  };
}

// Prepares a section from the TextIndex of its text root. Throws when a text node of the index
// has no parent element, which no parsed section has (its text root is an element).
export function prepareSection(index: TextIndex, root: Node, folder: TextFolder, language: string | undefined): PreparedSection {
  const count = index.nodes.length;
  const lengths = new Uint32Array(count);
  const runSteps = new Uint32Array(count);
  const runOffsets = new Uint32Array(count);
  const parentSteps: (readonly CfiStep[])[] = [];
  const finder = new StepFinder();
  for (let position = 0; position < count; position += 1) {
    const node = index.nodes[position] as CharacterData;
    const parent = node.parentElement;
    if (parent === null) throw new Error('a text of the section is not in an element');
    const run = finder.placesIn(parent).runs.get(node) as { step: number; offset: number };
    lengths[position] = node.length;
    runSteps[position] = run.step;
    runOffsets[position] = run.offset;
    parentSteps.push(finder.stepsTo(parent));
  }
  const text = index.text;
  const boundaries = blockBoundaries(root);
  return preparedSection({ text, boundaries, language, starts: index.starts, lengths, parentSteps, runSteps, runOffsets }, folder);
}

interface TextPlace {
  node: number;
  offset: number;
}

// TextIndex.pointAt over the prepared nodes: at a boundary between two nodes the later is chosen
// unless `preferEarlier` is set.
function placeAt(section: PreparedSection, position: number, preferEarlier: boolean): TextPlace | undefined {
  const count = section.lengths.length;
  if (count === 0) return undefined;
  const clamped = Math.max(0, Math.min(position, section.text.length));
  let low = 0;
  let high = count - 1;
  while (low < high) {
    const middle = (low + high + 1) >> 1;
    const start = section.starts[middle] as number;
    if (start < clamped || (start === clamped && !preferEarlier)) low = middle;
    else high = middle - 1;
  }
  while (low < count - 1 && section.lengths[low] === 0 && !preferEarlier) low += 1;
  return { node: low, offset: Math.min(clamped - (section.starts[low] as number), section.lengths[low] as number) };
}

const assertionLength = 10;

// The written form of each step of a shared list of parent steps, kept beside the list: every
// result of a search writes two paths, and their steps are few and shared by the section's nodes.
const writtenSteps = new WeakMap<readonly CfiStep[], readonly string[]>();

function writeStep(step: CfiStep): string {
  return step.id === undefined ? `/${step.index}` : `/${step.index}[${escapeCfiText(step.id)}]`;
}

function writtenStepsOf(steps: readonly CfiStep[]): readonly string[] {
  let written = writtenSteps.get(steps);
  if (written === undefined) {
    written = steps.map(writeStep);
    writtenSteps.set(steps, written);
  }
  return written;
}

// The character offset of a place with its text assertion, as writeCfi writes a path's offset.
function writtenOffset(section: PreparedSection, place: TextPlace): string {
  const textPosition = (section.starts[place.node] as number) + place.offset;
  const before = section.text.slice(Math.max(0, textPosition - assertionLength), textPosition);
  const after = section.text.slice(textPosition, textPosition + assertionLength);
  let offset = `:${(section.runOffsets[place.node] as number) + place.offset}`;
  if (before.length > 0 || after.length > 0) offset += `[${escapeCfiText(before)}${after.length > 0 ? `,${escapeCfiText(after)}` : ''}]`;
  return offset;
}

// The range CFI of text[start, end), as cfiForRange writes it for rangeForSpan of the same span;
// undefined for a section without text nodes. Written straight from the prepared steps, to the
// same text that writeCfi gives for the parsed form of those paths.
export function cfiForSpan(section: PreparedSection, start: number, end: number, spine: CfiSpinePosition): string | undefined {
  const from = placeAt(section, start, false);
  const to = placeAt(section, end, true);
  if (from === undefined || to === undefined) return undefined;
  const spinePath = `${writeStep({ index: spine.spineCfiStep })}${writeStep({ index: spine.itemCfiStep, id: spine.idref })}!`;
  const fromParents = section.parentSteps[from.node] as readonly CfiStep[];
  const fromWritten = writtenStepsOf(fromParents);
  const fromRun = `/${section.runSteps[from.node] as number}`;
  if (from.node === to.node && from.offset === to.offset) return `epubcfi(${spinePath}${fromWritten.join('')}${fromRun}${writtenOffset(section, from)})`;
  const toParents = section.parentSteps[to.node] as readonly CfiStep[];
  const toWritten = writtenStepsOf(toParents);
  const toRun = `/${section.runSteps[to.node] as number}`;
  // The common part holds element steps only (a run's step is the last of each path) and leaves
  // each side at least its last step.
  let common = 0;
  while (common < fromParents.length && common < toParents.length && (fromParents[common] as CfiStep).index === (toParents[common] as CfiStep).index && (fromParents[common] as CfiStep).index % 2 === 0) {
    common += 1;
  }
  const commonPath = fromWritten.slice(0, common).join('');
  const startPath = fromWritten.slice(common).join('') + fromRun + writtenOffset(section, from);
  const endPath = toWritten.slice(common).join('') + toRun + writtenOffset(section, to);
  return `epubcfi(${spinePath}${commonPath},${startPath},${endPath})`;
}

// Prepared sections by spine index, within a budget of bytes, the least recently used going first.
// forget() empties it and keeps out whatever was being prepared before.
export class PreparedSections {
  private readonly capacityBytes: number;
  private readonly sections = new Map<number, PreparedSection>();
  private heldBytes = 0;
  private currentEpoch = 0;

  constructor(capacityBytes = 64 * 1024 * 1024) {
    this.capacityBytes = capacityBytes;
  }

  get epoch(): number {
    return this.currentEpoch;
  }

  get bytes(): number {
    return this.heldBytes;
  }

  // Whether a section is kept, without counting as a use of it.
  has(spineIndex: number): boolean {
    return this.sections.has(spineIndex);
  }

  get(spineIndex: number): PreparedSection | undefined {
    const section = this.sections.get(spineIndex);
    if (section !== undefined) {
      this.sections.delete(spineIndex);
      this.sections.set(spineIndex, section);
    }
    return section;
  }

  // Keeps a section prepared in `epoch`; one prepared before the last forget() is not kept.
  keep(spineIndex: number, section: PreparedSection, epoch: number): void {
    if (epoch !== this.currentEpoch || section.bytes > this.capacityBytes) return;
    const previous = this.sections.get(spineIndex);
    if (previous !== undefined) {
      this.sections.delete(spineIndex);
      this.heldBytes -= previous.bytes;
    }
    this.sections.set(spineIndex, section);
    this.heldBytes += section.bytes;
    for (const [oldest, oldSection] of this.sections) {
      if (this.heldBytes <= this.capacityBytes) break;
      this.sections.delete(oldest);
      this.heldBytes -= oldSection.bytes;
    }
  }

  forget(): void {
    this.sections.clear();
    this.heldBytes = 0;
    this.currentEpoch += 1;
  }
}
