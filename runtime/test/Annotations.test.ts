import { describe, expect, it } from 'vitest';
import { BridgeRequestError } from '../src/bridge/BridgeRequestError';
import type { Locator } from '../src/bridge/records';
import { TextIndex } from '../src/cfi/TextIndex';
import { AnnotationLayer, type AnnotationEnvironment, type RuntimeAnnotation } from '../src/annotations/AnnotationLayer';
import { placeAnnotation, quoteOf } from '../src/annotations/AnnotationPlacement';
import type { SectionView } from '../src/layout/SectionView';
import { parseSectionDocument, textRoot } from '../src/publication/SectionDocuments';
import { textSelectionForRange, SelectionChangeFilter } from '../src/selection/SelectionRecord';
import { rangeForSpan } from '../src/text/SectionText';

function xhtml(body: string): Document {
  return parseSectionDocument(
    `<?xml version="1.0" encoding="UTF-8"?><html xmlns="http://www.w3.org/1999/xhtml"><head><title>t</title></head><body>${body}</body></html>`,
    'application/xhtml+xml',
  );
}

const chapter =
  '<p id="a">Call me Ishmael. Some years ago, never mind how long precisely, having little or no money in my purse.</p>' +
  '<p id="b">It is a way I have of driving off the spleen, and regulating the circulation.</p>';

// A highlight made the way the session makes one: from a selection of `words` in `document`.
function highlightOf(document: Document, words: string, spineIndex = 3, occurrence = 0): RuntimeAnnotation {
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

function placedText(document: Document, annotation: RuntimeAnnotation): { text?: string; resolution: string } {
  const index = new TextIndex(textRoot(document));
  const placement = placeAnnotation(document, index, annotation);
  if (placement.kind === 'unresolved') return { resolution: 'unresolved' };
  return { text: index.text.slice(placement.start, placement.end), resolution: placement.resolution };
}

describe('AnnotationPlacement', () => {
  it('PlacesAFreshHighlightByItsCfi', () => {
    const document = xhtml(chapter);
    const annotation = highlightOf(document, 'never mind how long');
    expect(annotation.locator.cfi).toMatch(/^epubcfi\(\/6\/8\[ch3\]!\/4\/2\[a\],\/1:\d+/);
    expect(placedText(xhtml(chapter), annotation)).toEqual({ text: 'never mind how long', resolution: 'cfi' });
  });

  it('FollowsTheIdAssertionsOfTheCfiWhenAParagraphMoved', () => {
    const annotation = highlightOf(xhtml(chapter), 'the spleen');
    const edited = xhtml(`<p>Foreword.</p>${chapter}`);
    expect(placedText(edited, annotation)).toEqual({ text: 'the spleen', resolution: 'cfi' });
  });

  it('FindsTheSameWordsAfterTheMarkupAroundThemChanged', () => {
    const plain = chapter.replace(/ id="[ab]"/g, '');
    const annotation = highlightOf(xhtml(plain), 'the spleen');
    // A new edition wraps words in elements and adds a paragraph before: the CFI leads elsewhere.
    const edited = xhtml(`<p>Foreword.</p>${plain.replace('driving off', '<em>driving</em> off')}`);
    // The CFI's own text assertions find the words again near where it led.
    expect(placedText(edited, annotation)).toEqual({ text: 'the spleen', resolution: 'cfi' });
    // Without them (a CFI written elsewhere), the excerpt and its witnesses do.
    const bare = { ...annotation, locator: { ...annotation.locator, cfi: (annotation.locator.cfi as string).replace(/(:\d+)\[[^\]]*\]/g, '$1') } };
    expect(bare.locator.cfi).not.toContain('spleen');
    expect(placedText(edited, bare)).toEqual({ text: 'the spleen', resolution: 'excerpt' });
  });

  it('LeavesAHighlightUnresolvedWhenItsWordsChanged', () => {
    const annotation = highlightOf(xhtml(chapter), 'the spleen');
    const edited = xhtml(chapter.replace('the spleen', 'the gloom'));
    expect(placedText(edited, annotation)).toEqual({ resolution: 'unresolved' });
  });

  it('DoesNotMoveAShortHighlightToTheSameWordsElsewhere', () => {
    // "the" is highlighted in "regulating the circulation"; that passage is rewritten, and other
    // "the"s remain in the section. None of them may take the highlight.
    const annotation = highlightOf(xhtml(chapter), 'the', 3, 1);
    expect(annotation.locator.excerpt?.suffix?.startsWith(' circulation')).toBe(true);
    const edited = xhtml(chapter.replace('regulating the circulation', 'keeping my blood moving'));
    expect(placedText(edited, annotation)).toEqual({ resolution: 'unresolved' });
  });

  it('KeepsTheCfiPlacementWhenTheWordsAreStillThere', () => {
    const annotation = highlightOf(xhtml(chapter), 'the', 3, 1);
    expect(placedText(xhtml(chapter), annotation)).toEqual({ text: 'the', resolution: 'cfi' });
  });

  it('PlacesAHighlightWithAnUnreadableCfiByItsExcerpt', () => {
    const annotation = highlightOf(xhtml(chapter), 'little or no money');
    const broken: RuntimeAnnotation = { ...annotation, locator: { ...annotation.locator, cfi: 'epubcfi(/6/8!/4/99/1:0)' } };
    expect(placedText(xhtml(chapter), broken)).toEqual({ text: 'little or no money', resolution: 'excerpt' });
  });

  it('UsesTheSuffixOnlyWhenTheExcerptIsTheSelection', () => {
    const locator: Locator = { spineHref: 'a', spineIndex: 0, excerpt: { exact: 'Call me Ishmael. Some', prefix: 'x', suffix: 'y' } };
    expect(quoteOf({ locator, selectedText: 'Call me' })).toEqual({ exact: 'Call me', prefix: 'x' });
    expect(quoteOf({ locator, selectedText: 'Call me Ishmael.  Some' })).toEqual({ exact: 'Call me Ishmael.  Some', prefix: 'x', suffix: 'y' });
  });
});

describe('SelectionRecord', () => {
  it('DescribesASelectionWithARangeCfiAndItsWitnesses', () => {
    const document = xhtml(chapter);
    const annotation = highlightOf(document, 'Some years ago');
    expect(annotation.selectedText).toBe('Some years ago');
    expect(annotation.locator.excerpt).toEqual({ exact: 'Some years ago', prefix: 'Call me Ishmael. ', suffix: ', never mind how long precisely,' });
    expect(annotation.locator.sectionProgression).toBeCloseTo(17 / new TextIndex(textRoot(document)).text.length);
  });

  it('ReportsEveryAppearanceChangeAndDisappearanceOnce', () => {
    const filter = new SelectionChangeFilter();
    const rect = { x: 1, y: 2, width: 3, height: 4 };
    expect(filter.accept({ available: false }, '')).toBe(false);
    expect(filter.accept({ available: true, rect }, 'a')).toBe(true);
    expect(filter.accept({ available: true, rect }, 'a')).toBe(false);
    expect(filter.accept({ available: true, rect }, 'b')).toBe(true);
    expect(filter.accept({ available: true, rect: { ...rect, y: 40 } }, 'b')).toBe(true);
    expect(filter.accept({ available: false }, '')).toBe(true);
    expect(filter.accept({ available: false }, '')).toBe(false);
  });
});

// jsdom lays nothing out: ranges have no boxes there.
if (typeof Range.prototype.getClientRects !== 'function') {
  Range.prototype.getClientRects = function getClientRects(): DOMRectList {
    return [] as unknown as DOMRectList;
  };
}

// A loaded section without layout: what the layer reads of a SectionView.
function fakeView(spineIndex: number, document: Document): SectionView {
  const index = new TextIndex(textRoot(document));
  const frame = { getBoundingClientRect: () => ({ left: 0, top: 0, width: 100, height: 100 }), offsetWidth: 100, offsetHeight: 100 };
  return { spineIndex, document, frame, text: () => index } as unknown as SectionView;
}

interface Harness {
  layer: AnnotationLayer;
  events: { resolved: string[]; unresolved: string[] }[];
  loaded: SectionView[];
  parsed: Map<number, Document>;
  flush(): void;
}

function harness(): Harness {
  const events: { resolved: string[]; unresolved: string[] }[] = [];
  const loaded: SectionView[] = [];
  const parsed = new Map<number, Document>();
  const tasks: (() => void)[] = [];
  const environment: AnnotationEnvironment = {
    spineIndexOf: (locator) => (locator.spineIndex >= 0 && locator.spineIndex < 10 ? locator.spineIndex : undefined),
    parsedSection: async (spineIndex) => {
      const document = parsed.get(spineIndex);
      if (document === undefined) throw new Error('unreadable');
      return { document, index: new TextIndex(textRoot(document)) };
    },
    loadedSections: () => loaded,
    emitResolutionChanged: (resolved, unresolved) => events.push({ resolved, unresolved }),
    emitContextMenuRequested: () => undefined,
    schedule: (task) => tasks.push(task),
  };
  return {
    layer: new AnnotationLayer(environment),
    events,
    loaded,
    parsed,
    flush: () => {
      for (const task of tasks.splice(0)) task();
    },
  };
}

const idA = '11111111-1111-4111-8111-111111111111';
const idB = '22222222-2222-4222-8222-222222222222';

describe('AnnotationLayer', () => {
  it('ResolvesAHighlightOfASectionNotOnScreenFromTheParsedSection', async () => {
    const { layer, events, parsed, flush } = harness();
    parsed.set(3, xhtml(chapter));
    const annotation = { ...highlightOf(xhtml(chapter), 'the spleen'), id: idA };
    expect(await layer.add(annotation)).toEqual({ rendered: true, resolution: 'cfi' });
    flush();
    expect(events).toEqual([{ resolved: [idA], unresolved: [] }]);
  });

  it('ReportsAHighlightWhoseTextChangedAsUnresolvedAndDrawsItWhenItsSectionLoads', async () => {
    const { layer, events, parsed, loaded, flush } = harness();
    parsed.set(3, xhtml(chapter.replace('the spleen', 'the gloom')));
    const changed = { ...highlightOf(xhtml(chapter), 'the spleen'), id: idA };
    const kept = { ...highlightOf(xhtml(chapter), 'never mind'), id: idB };
    expect(await layer.add(changed)).toEqual({ rendered: false, resolution: 'unresolved' });
    expect(await layer.add(kept)).toEqual({ rendered: true, resolution: 'cfi' });
    flush();
    expect(events).toEqual([{ resolved: [idB], unresolved: [idA] }]);
    // The section loads with the text as it was: the highlight is placed after all.
    const view = fakeView(3, xhtml(chapter));
    loaded.push(view);
    layer.sectionPrepared(view);
    flush();
    expect(events[1]).toEqual({ resolved: [idA], unresolved: [] });
    expect(layer.ids()).toEqual({ resolved: [idA, idB], unresolved: [] });
  });

  it('SendsNothingWhenASectionLoadChangesNoPlacement', async () => {
    const { layer, events, parsed, loaded, flush } = harness();
    parsed.set(3, xhtml(chapter));
    await layer.add({ ...highlightOf(xhtml(chapter), 'the spleen'), id: idA });
    flush();
    const view = fakeView(3, xhtml(chapter));
    loaded.push(view);
    layer.sectionPrepared(view);
    flush();
    expect(events).toHaveLength(1);
  });

  it('PlacesAHighlightInTheLoadedSectionDirectly', async () => {
    const { layer, loaded } = harness();
    const view = fakeView(3, xhtml(chapter));
    loaded.push(view);
    layer.sectionPrepared(view);
    const result = await layer.add({ ...highlightOf(xhtml(`<p>Foreword.</p>${chapter}`), 'the spleen'), id: idA });
    expect(result).toEqual({ rendered: true, resolution: 'cfi' });
    expect(layer.pulse(idA)).toEqual({ rendered: true, resolution: 'cfi' });
    layer.clear();
  });

  it('RefusesAHighlightOverTheSelectionLimit', async () => {
    const { layer, parsed } = harness();
    parsed.set(3, xhtml(chapter));
    const annotation = { ...highlightOf(xhtml(chapter), 'the spleen'), id: idA, selectedText: 'x'.repeat(2001) };
    await expect(layer.add(annotation)).rejects.toMatchObject({ code: 'selection-too-long' });
    await expect(layer.add(annotation)).rejects.toBeInstanceOf(BridgeRequestError);
    const atLimit = { ...annotation, selectedText: '\u{1d400}'.repeat(2000) };
    expect((await layer.add(atLimit)).resolution).toBe('unresolved');
  });

  it('ReportsAnUnknownOrUnreadableSectionAsUnresolved', async () => {
    const { layer, events, flush } = harness();
    const annotation = highlightOf(xhtml(chapter), 'the spleen');
    expect(await layer.add({ ...annotation, id: idA, locator: { ...annotation.locator, spineIndex: 42 } })).toEqual({
      rendered: false,
      resolution: 'section-not-found',
    });
    expect(await layer.add({ ...annotation, id: idB })).toEqual({ rendered: false, resolution: 'section-unavailable' });
    flush();
    expect(events).toEqual([{ resolved: [], unresolved: [idA, idB] }]);
  });

  it('ForgetsARemovedHighlightAndReportsNothingForIt', async () => {
    const { layer, events, parsed, flush } = harness();
    parsed.set(3, xhtml(chapter));
    await layer.add({ ...highlightOf(xhtml(chapter), 'the spleen'), id: idA });
    expect(layer.remove(idA)).toEqual({ rendered: false, resolution: 'removed' });
    expect(layer.remove(idA)).toEqual({ rendered: false, resolution: 'not-found' });
    expect(layer.pulse(idA)).toEqual({ rendered: false, resolution: 'not-found' });
    flush();
    expect(events).toEqual([]);
  });
});
