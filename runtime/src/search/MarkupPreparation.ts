// A section prepared straight from its XHTML source, without building its document: one pass of an
// XML parser yields the text, block boundaries and CFI steps that prepareSection takes from the
// parsed document, at a fraction of the cost of DOMParser and the walks over its tree. Only the
// plain case is taken: a well-formed XHTML section whose text root is its body. Whatever the
// document parser might read another way gives undefined, and the section goes through its
// document as before: a source that is not well-formed (which the runtime parses as HTML), a
// DOCTYPE with declarations of its own (entities, default attributes), an entity that XML does not
// predefine, an element named parsererror (which marks a failed parse), a root other than XHTML's
// html or no body under it.
import { SaxesParser, type SaxesTagNS } from 'saxes';
import type { CfiStep } from '../cfi/CfiSyntax';
import { runtimeNodeAttribute } from '../cfi/ignoredNodes';
import { blockElements } from '../text/SectionText';
import type { TextFolder } from '../text/TextFolding';
import { preparedSection, type PreparedSection } from './PreparedSection';

const xhtmlNamespace = 'http://www.w3.org/1999/xhtml';

// Whether the runtime reads a section of this media type as XML (see parseSectionDocument).
export function isXMLMediaType(mediaType: string): boolean {
  return mediaType === 'application/xhtml+xml' || mediaType.endsWith('+xml') || mediaType === 'application/xml';
}

// An element open in the text root, or the text root itself.
interface OpenElement {
  // The steps from the root element to this element, shared by its text children.
  readonly steps: readonly CfiStep[];
  readonly isBlock: boolean;
  // Its child elements counted so far, and the characters of its current run of text.
  elements: number;
  runOffset: number;
}

// Raised from the parser's handlers when the section needs its document after all.
class NeedsDocument extends Error {}

function stepFor(tag: SaxesTagNS, position: number): CfiStep {
  const step: CfiStep = { index: 2 * (position + 1) };
  const id = tag.attributes.id?.value;
  if (id !== undefined && id.length > 0) step.id = id;
  return step;
}

// The section prepared from `markup` of `mediaType`, or undefined when it must be read through its
// document. Never throws for a bad source: a source the parser refuses is one for the document.
export function prepareSectionFromMarkup(
  markup: string,
  mediaType: string,
  folder: TextFolder,
  language: string | undefined,
): PreparedSection | undefined {
  if (!isXMLMediaType(mediaType)) return undefined;
  const pieces: string[] = [];
  const starts: number[] = [];
  const lengths: number[] = [];
  const parentSteps: (readonly CfiStep[])[] = [];
  const runSteps: number[] = [];
  const runOffsets: number[] = [];
  const boundaries: number[] = [];
  let length = 0;
  // The root element's own place, once it is open; the open elements of the text root, its own first.
  let root: OpenElement | undefined;
  const open: OpenElement[] = [];
  let textRootSeen = false;
  // Depth of an element that is left out (outside the text root, or a runtime node), 0 when none.
  let skipped = 0;
  let depth = 0;

  const mark = (): void => {
    if (length > 0 && boundaries[boundaries.length - 1] !== length) boundaries.push(length);
  };
  const addText = (text: string): void => {
    const parent = open[open.length - 1];
    if (parent === undefined || skipped > 0) return;
    starts.push(length);
    lengths.push(text.length);
    parentSteps.push(parent.steps);
    runSteps.push(2 * parent.elements + 1);
    runOffsets.push(parent.runOffset);
    parent.runOffset += text.length;
    pieces.push(text);
    length += text.length;
  };

  const parser = new SaxesParser({ xmlns: true });
  parser.on('doctype', (doctype) => {
    if (doctype.includes('[')) throw new NeedsDocument();
  });
  parser.on('opentag', (tag) => {
    depth += 1;
    if (tag.local === 'parsererror') throw new NeedsDocument();
    if (skipped > 0) {
      skipped += 1;
      return;
    }
    if (root === undefined) {
      if (tag.uri !== xhtmlNamespace || tag.local !== 'html') throw new NeedsDocument();
      root = { steps: [], isBlock: false, elements: 0, runOffset: 0 };
      return;
    }
    const isRuntimeNode = tag.attributes[runtimeNodeAttribute] !== undefined;
    const parent = open[open.length - 1];
    if (parent === undefined) {
      // A child of the root: the first body (or frameset) of XHTML is the text root, as for document.body.
      if (isRuntimeNode) {
        skipped = 1;
        return;
      }
      const position = root.elements;
      root.elements += 1;
      const isTextRoot = !textRootSeen && tag.uri === xhtmlNamespace && (tag.local === 'body' || tag.local === 'frameset');
      if (!isTextRoot) {
        skipped = 1;
        return;
      }
      textRootSeen = true;
      open.push({ steps: [stepFor(tag, position)], isBlock: false, elements: 0, runOffset: 0 });
      return;
    }
    if (isRuntimeNode) {
      skipped = 1;
      return;
    }
    const position = parent.elements;
    parent.elements += 1;
    parent.runOffset = 0;
    const isBlock = blockElements.has(tag.local.toLowerCase());
    if (isBlock) mark();
    open.push({ steps: [...parent.steps, stepFor(tag, position)], isBlock, elements: 0, runOffset: 0 });
  });
  parser.on('closetag', () => {
    depth -= 1;
    if (skipped > 0) {
      skipped -= 1;
      return;
    }
    if (depth === 0) return;
    const closed = open.pop();
    if (closed?.isBlock === true) mark();
  });
  parser.on('text', addText);
  parser.on('cdata', addText);

  try {
    parser.write(markup).close();
  } catch {
    return undefined;
  }
  if (!textRootSeen) return undefined;

  return preparedSection(
    {
      text: pieces.join(''),
      boundaries,
      language,
      starts,
      lengths: Uint32Array.from(lengths),
      parentSteps,
      runSteps: Uint32Array.from(runSteps),
      runOffsets: Uint32Array.from(runOffsets),
    },
    folder,
  );
}
