// EPUB CFIs in a content document: from a DOM point or range to a CFI, and back. Runtime nodes are
// looked through, so the runtime's own additions never change a CFI.
import { escapeCfiText, parseCfi, writeCfi, type CfiOffset, type CfiPath, type CfiStep, type ParsedCfi } from './CfiSyntax';
import { isRuntimeNode, isTextLike } from './ignoredNodes';
import { TextIndex } from './TextIndex';

// How a spine item is reached from the package document: the package part of every CFI.
export interface CfiSpinePosition {
  spineCfiStep: number;
  itemCfiStep: number;
  idref: string;
}

export interface DomPoint {
  node: Node;
  offset: number;
}

// How far a resolved position can be trusted.
export type CfiResolutionQuality =
  | 'exact'
  // An id assertion named another element than the index did; the id was followed.
  | 'idAssertion'
  // The offset disagreed with the text assertion; the asserted text was found nearby.
  | 'textAssertion'
  // The text assertion was not found; the position stands as the path gave it.
  | 'textAssertionMismatch'
  // An offset beyond the end of its text was brought back to the end.
  | 'clamped';

export interface CfiResolvedPoint {
  point: DomPoint;
  quality: CfiResolutionQuality;
}

export class CfiResolutionError extends Error {
  constructor(message: string) {
    super(message);
    this.name = 'CfiResolutionError';
  }
}

const assertionLength = 10;

interface Chunk {
  // The odd step index of the chunk.
  index: number;
  nodes: CharacterData[];
}

// The children of an element as CFI sees them: element children by even index, and between them
// runs of text (several DOM nodes when markup or comments split them) by odd index.
function cfiChildren(element: Node): { elements: Element[]; chunks: Chunk[] } {
  const elements: Element[] = [];
  const chunks: Chunk[] = [{ index: 1, nodes: [] }];
  const visit = (parent: Node): void => {
    for (let child = parent.firstChild; child !== null; child = child.nextSibling) {
      if (child.nodeType === Node.ELEMENT_NODE) {
        if (isRuntimeNode(child)) continue;
        elements.push(child as Element);
        chunks.push({ index: 2 * elements.length + 1, nodes: [] });
      } else if (isTextLike(child)) {
        (chunks[chunks.length - 1] as Chunk).nodes.push(child);
      }
    }
  };
  visit(element);
  return { elements, chunks };
}

function elementStep(element: Element): CfiStep {
  const parent = element.parentNode;
  if (parent === null) throw new CfiResolutionError('the element is not in a document');
  const position = cfiChildren(parent).elements.indexOf(element);
  const step: CfiStep = { index: 2 * (position + 1) };
  const id = element.getAttribute('id');
  if (id !== null && id.length > 0) step.id = id;
  return step;
}

// Steps from the root element down to `element` (the root itself takes no step).
function stepsTo(element: Element): CfiStep[] {
  const steps: CfiStep[] = [];
  const root = element.ownerDocument.documentElement;
  for (let current: Element | null = element; current !== null && current !== root; current = current.parentElement) {
    steps.unshift(elementStep(current));
  }
  return steps;
}

// The nearest ancestor (or self) that is not inside runtime nodes; a point inside a runtime node
// is moved to just before that node.
function normalisePoint(point: DomPoint): DomPoint {
  let node: Node = point.node;
  let offset = point.offset;
  for (let current: Node | null = node; current !== null; current = current.parentNode) {
    if (isRuntimeNode(current)) {
      const parent = current.parentNode as Node;
      node = parent;
      offset = Array.prototype.indexOf.call(parent.childNodes, current) as number;
    }
  }
  return { node, offset };
}

interface LocalTarget {
  parent: Element;
  steps: CfiStep[];
  character?: number;
  // For a text target: where in the document's text the point is, for assertions.
  textPosition?: number;
}

function localTarget(rawPoint: DomPoint, index: TextIndex): LocalTarget {
  const point = normalisePoint(rawPoint);
  if (isTextLike(point.node)) {
    const parent = point.node.parentElement;
    if (parent === null) throw new CfiResolutionError('the text is not in an element');
    const { chunks } = cfiChildren(parent);
    const chunk = chunks.find((candidate) => candidate.nodes.includes(point.node as CharacterData)) as Chunk;
    let character = 0;
    for (const node of chunk.nodes) {
      if (node === point.node) break;
      character += node.length;
    }
    character += Math.min(point.offset, (point.node as CharacterData).length);
    const target: LocalTarget = { parent, steps: [...stepsTo(parent), { index: chunk.index }], character };
    const textPosition = index.positionOf(point.node, point.offset);
    if (textPosition !== undefined) target.textPosition = textPosition;
    return target;
  }
  if (point.node.nodeType !== Node.ELEMENT_NODE) throw new CfiResolutionError('a CFI point lies in an element or a text');
  const parent = point.node as Element;
  const children = parent.childNodes;
  // Look at the first node at or after the point that CFI counts.
  for (let position = point.offset; position < children.length; position += 1) {
    const child = children[position] as Node;
    if (child.nodeType === Node.ELEMENT_NODE && !isRuntimeNode(child)) {
      return { parent, steps: stepsTo(child as Element) };
    }
    if (isTextLike(child)) return localTarget({ node: child, offset: 0 }, index);
  }
  // At the end: the last run of text, after its last character.
  const { chunks } = cfiChildren(parent);
  const last = chunks[chunks.length - 1] as Chunk;
  const character = last.nodes.reduce((sum, node) => sum + node.length, 0);
  const target: LocalTarget = { parent, steps: [...stepsTo(parent), { index: last.index }], character };
  target.textPosition = index.positionOfBoundary(parent, children.length);
  return target;
}

function textAssertionFor(index: TextIndex, position: number | undefined): CfiOffset['assertion'] {
  if (position === undefined) return undefined;
  const before = index.text.slice(Math.max(0, position - assertionLength), position);
  const after = index.text.slice(position, position + assertionLength);
  if (before.length === 0 && after.length === 0) return undefined;
  const assertion: NonNullable<CfiOffset['assertion']> = {};
  if (before.length > 0) assertion.before = before;
  if (after.length > 0) assertion.after = after;
  return assertion;
}

function pathFor(target: LocalTarget, index: TextIndex, spine: CfiSpinePosition): CfiPath {
  const path: CfiPath = {
    segments: [[{ index: spine.spineCfiStep }, { index: spine.itemCfiStep, id: spine.idref }], target.steps],
  };
  if (target.character !== undefined) {
    const offset: CfiOffset = { character: target.character };
    const assertion = textAssertionFor(index, target.textPosition);
    if (assertion !== undefined) offset.assertion = assertion;
    path.offset = offset;
  }
  return path;
}

export function cfiForPoint(point: DomPoint, spine: CfiSpinePosition, index?: TextIndex): string {
  const document = point.node.ownerDocument ?? (point.node as Document);
  const textIndex = index ?? new TextIndex(document.body ?? document.documentElement);
  return writeCfi({ path: pathFor(localTarget(point, textIndex), textIndex, spine) });
}

export function cfiForRange(range: Range, spine: CfiSpinePosition, index?: TextIndex): string {
  const document = range.startContainer.ownerDocument ?? (range.startContainer as Document);
  const textIndex = index ?? new TextIndex(document.body ?? document.documentElement);
  const start = pathFor(localTarget({ node: range.startContainer, offset: range.startOffset }, textIndex), textIndex, spine);
  const end = pathFor(localTarget({ node: range.endContainer, offset: range.endOffset }, textIndex), textIndex, spine);
  if (range.collapsed) return writeCfi({ path: start });
  const startSteps = start.segments[1] as CfiStep[];
  const endSteps = end.segments[1] as CfiStep[];
  // The common part holds element steps only and leaves each side at least its last step.
  let common = 0;
  while (
    common < startSteps.length - 1 &&
    common < endSteps.length - 1 &&
    (startSteps[common] as CfiStep).index === (endSteps[common] as CfiStep).index &&
    (startSteps[common] as CfiStep).index % 2 === 0
  ) {
    common += 1;
  }
  const parsed: ParsedCfi = {
    path: { segments: [start.segments[0] as CfiStep[], startSteps.slice(0, common)] },
    range: {
      start: { segments: [startSteps.slice(common)], ...(start.offset === undefined ? {} : { offset: start.offset }) },
      end: { segments: [endSteps.slice(common)], ...(end.offset === undefined ? {} : { offset: end.offset }) },
    },
  };
  return writeCfi(parsed);
}

// The steps of the content document: the part after the indirection, or the whole path when the
// CFI has no package part.
function contentSteps(path: CfiPath): CfiStep[] {
  const segments = path.segments;
  return segments.length > 1 ? segments.slice(1).flat() : (segments[0] ?? []);
}

interface WalkResult {
  point: DomPoint;
  quality: CfiResolutionQuality;
  textPosition: number | undefined;
}

function walk(document: Document, steps: CfiStep[], offset: CfiOffset | undefined, index: TextIndex): WalkResult {
  let current: Element = document.documentElement;
  let quality: CfiResolutionQuality = 'exact';
  for (let position = 0; position < steps.length; position += 1) {
    const step = steps[position] as CfiStep;
    const isLast = position === steps.length - 1;
    const { elements, chunks } = cfiChildren(current);
    if (step.index % 2 === 0) {
      let next = elements[step.index / 2 - 1];
      if (step.id !== undefined && next?.getAttribute('id') !== step.id) {
        const byID = document.getElementById(step.id);
        if (byID !== null && !isRuntimeNode(byID)) {
          next = byID;
          quality = 'idAssertion';
        }
      }
      if (next === undefined) throw new CfiResolutionError(`step /${step.index} names no element`);
      current = next;
      continue;
    }
    if (!isLast) throw new CfiResolutionError('a text step must be the last step');
    const chunk = chunks.find((candidate) => candidate.index === step.index);
    if (chunk === undefined) throw new CfiResolutionError(`step /${step.index} names no text`);
    let remaining = offset?.character ?? 0;
    const total = chunk.nodes.reduce((sum, node) => sum + node.length, 0);
    if (remaining > total) {
      remaining = total;
      quality = 'clamped';
    }
    if (chunk.nodes.length === 0) {
      // An empty run: the point is in the element, where the run would stand.
      const anchor = step.index === 1 ? null : (elements[(step.index - 1) / 2 - 1] as Element);
      const childIndex = anchor === null ? 0 : (Array.prototype.indexOf.call(current.childNodes, anchor) as number) + 1;
      return { point: { node: current, offset: childIndex }, quality, textPosition: index.positionOfBoundary(current, childIndex) };
    }
    // A point on a boundary between nodes of a run belongs to the later node, unless the side bias
    // asks for the earlier one.
    const preferEarlier = offset?.assertion?.sideBias === 'before';
    for (let nodeIndex = 0; nodeIndex < chunk.nodes.length; nodeIndex += 1) {
      const node = chunk.nodes[nodeIndex] as CharacterData;
      const isLastNode = nodeIndex === chunk.nodes.length - 1;
      if (remaining < node.length || (remaining === node.length && (preferEarlier || isLastNode))) {
        return { point: { node, offset: remaining }, quality, textPosition: index.positionOf(node, remaining) };
      }
      remaining -= node.length;
    }
  }
  // An element target: the point just before the element.
  const parent = current.parentNode;
  if (parent === null || current === document.documentElement) {
    return { point: { node: document.documentElement, offset: 0 }, quality, textPosition: 0 };
  }
  const childIndex = Array.prototype.indexOf.call(parent.childNodes, current) as number;
  return { point: { node: parent, offset: childIndex }, quality, textPosition: undefined };
}

function assertionHolds(index: TextIndex, position: number, before: string, after: string): boolean {
  return index.text.slice(position - before.length, position) === before && index.text.slice(position, position + after.length) === after;
}

// Finds the asserted text nearest to where the path led, and returns the position between its
// two halves.
function searchAssertion(index: TextIndex, near: number, before: string, after: string): number | undefined {
  const needle = before + after;
  if (needle.length === 0) return undefined;
  let best: number | undefined;
  for (let found = index.text.indexOf(needle); found >= 0; found = index.text.indexOf(needle, found + 1)) {
    const candidate = found + before.length;
    if (best === undefined || Math.abs(candidate - near) < Math.abs(best - near)) best = candidate;
  }
  return best;
}

function applyAssertion(result: WalkResult, offset: CfiOffset | undefined, index: TextIndex): CfiResolvedPoint {
  const assertion = offset?.assertion;
  const position = result.textPosition;
  if (assertion === undefined || position === undefined || (assertion.before === undefined && assertion.after === undefined)) {
    return { point: result.point, quality: result.quality };
  }
  const before = assertion.before ?? '';
  const after = assertion.after ?? '';
  if (assertionHolds(index, position, before, after)) return { point: result.point, quality: result.quality };
  const corrected = searchAssertion(index, position, before, after);
  if (corrected === undefined) return { point: result.point, quality: 'textAssertionMismatch' };
  const textPoint = index.pointAt(corrected, assertion.sideBias === 'before');
  if (textPoint === undefined) return { point: result.point, quality: 'textAssertionMismatch' };
  return { point: textPoint, quality: 'textAssertion' };
}

function resolvePath(document: Document, steps: CfiStep[], offset: CfiOffset | undefined, index: TextIndex): CfiResolvedPoint {
  return applyAssertion(walk(document, steps, offset, index), offset, index);
}

export interface CfiResolvedRange {
  start: CfiResolvedPoint;
  end: CfiResolvedPoint;
}

export function resolveCfi(document: Document, cfi: string | ParsedCfi, index?: TextIndex): CfiResolvedPoint | CfiResolvedRange {
  const parsed = typeof cfi === 'string' ? parseCfi(cfi) : cfi;
  const textIndex = index ?? new TextIndex(document.body ?? document.documentElement);
  const base = contentSteps(parsed.path);
  if (parsed.range === undefined) return resolvePath(document, base, parsed.path.offset, textIndex);
  const startSteps = [...base, ...parsed.range.start.segments.flat()];
  const endSteps = [...base, ...parsed.range.end.segments.flat()];
  return {
    start: resolvePath(document, startSteps, parsed.range.start.offset, textIndex),
    end: resolvePath(document, endSteps, parsed.range.end.offset, textIndex),
  };
}

// Resolves a CFI to one point; a range gives its start.
export function resolveCfiPoint(document: Document, cfi: string, index?: TextIndex): CfiResolvedPoint {
  const resolved = resolveCfi(document, cfi, index);
  return 'point' in resolved ? resolved : resolved.start;
}

export function resolveCfiRange(document: Document, cfi: string, index?: TextIndex): Range {
  const resolved = resolveCfi(document, cfi, index);
  const range = document.createRange();
  if ('point' in resolved) {
    range.setStart(resolved.point.node, resolved.point.offset);
    range.collapse(true);
    return range;
  }
  range.setStart(resolved.start.point.node, resolved.start.point.offset);
  range.setEnd(resolved.end.point.node, resolved.end.point.offset);
  return range;
}

// The itemref step and idref of a CFI's package part, to check it against the spine.
export function cfiSpineStep(cfi: string): { itemCfiStep: number; idref?: string } | undefined {
  const parsed = parseCfi(cfi);
  if (parsed.path.segments.length < 2) return undefined;
  const packageSteps = parsed.path.segments[0] as CfiStep[];
  const last = packageSteps[packageSteps.length - 1];
  if (last === undefined) return undefined;
  return last.id === undefined ? { itemCfiStep: last.index } : { itemCfiStep: last.index, idref: last.id };
}

export { escapeCfiText };
