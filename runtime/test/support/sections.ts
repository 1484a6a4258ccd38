// Sections the runtime tests read: XHTML text and documents built from a body, and a highlight
// made the way the session makes one.
import { expect } from 'vitest';
import type { RuntimeAnnotation } from '../../src/annotations/AnnotationLayer';
import { TextIndex } from '../../src/cfi/TextIndex';
import { parseSectionDocument, textRoot } from '../../src/publication/SectionDocuments';
import { textSelectionForRange } from '../../src/selection/SelectionRecord';
import { rangeForSpan } from '../../src/text/SectionText';

export function xhtmlText(body: string, head = '<title>t</title>', rootAttributes = ''): string {
  const attributes = rootAttributes === '' ? '' : ` ${rootAttributes}`;
  return `<?xml version="1.0" encoding="UTF-8"?><html xmlns="http://www.w3.org/1999/xhtml"${attributes}><head>${head}</head><body>${body}</body></html>`;
}

// Parsed by the browser's own parser; a document that is not well-formed fails the test.
export function xhtml(body: string, head?: string, rootAttributes?: string): Document {
  const document = new DOMParser().parseFromString(xhtmlText(body, head, rootAttributes), 'application/xhtml+xml');
  expect(document.getElementsByTagName('parsererror')).toHaveLength(0);
  return document;
}

// Parsed as the runtime parses a section it loads.
export function sectionDocument(body: string): Document {
  return parseSectionDocument(xhtmlText(body), 'application/xhtml+xml');
}

export const chapter =
  '<p id="a">Call me Ishmael. Some years ago, never mind how long precisely, having little or no money in my purse.</p>' +
  '<p id="b">It is a way I have of driving off the spleen, and regulating the circulation.</p>';

// A highlight made the way the session makes one: from a selection of `words` in `document`.
export function highlightOf(document: Document, words: string, spineIndex = 3, occurrence = 0): RuntimeAnnotation {
  const index = new TextIndex(textRoot(document));
  let start = -1;
  for (let count = 0; count <= occurrence; count += 1) start = index.text.indexOf(words, start + 1);
  if (start < 0) throw new Error(`no ${words}`);
  const range = rangeForSpan(index, start, start + words.length) as Range;
  const selection = textSelectionForRange(range, index, {
    spineHref: `text/ch${spineIndex}.xhtml`,
    spineIndex,
    cfiSpine: { spineCfiStep: 6, itemCfiStep: 2 * (spineIndex + 1), idref: `ch${spineIndex}` },
    totalProgression: (progression) => progression,
  });
  if (selection === undefined) throw new Error('no selection');
  return { id: '7c9e6679-7425-40de-944b-e07fc1f90ae7', locator: selection.locator, selectedText: selection.selectedText, color: 'yellow' };
}

// jsdom lays nothing out; ranges answer with no rectangles.
if (typeof Range.prototype.getClientRects !== 'function') {
  Range.prototype.getClientRects = function getClientRects(): DOMRectList {
    return [] as unknown as DOMRectList;
  };
}
