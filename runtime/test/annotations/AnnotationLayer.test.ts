import { describe, expect, it } from 'vitest';
import { BridgeRequestError } from '../../src/bridge/BridgeRequestError';
import { TextIndex } from '../../src/cfi/TextIndex';
import { AnnotationLayer, type AnnotationEnvironment } from '../../src/annotations/AnnotationLayer';
import type { SectionView } from '../../src/layout/SectionView';
import { textRoot } from '../../src/publication/SectionDocuments';
import { chapter, highlightOf, sectionDocument } from '../support/sections';

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
  it('ResolvesAHighlightOfASectionNotOnScreenAndSendsNothingMoreWhenItLoads', async () => {
    const { layer, events, parsed, loaded, flush } = harness();
    parsed.set(3, sectionDocument(chapter));
    const annotation = { ...highlightOf(sectionDocument(chapter), 'the spleen'), id: idA };
    expect(await layer.add(annotation)).toEqual({ rendered: true, resolution: 'cfi' });
    flush();
    expect(events).toEqual([{ resolved: [idA], unresolved: [] }]);
    // The section loads and no placement changes.
    const view = fakeView(3, sectionDocument(chapter));
    loaded.push(view);
    layer.sectionPrepared(view);
    flush();
    expect(events).toHaveLength(1);
  });

  it('ReportsAHighlightWhoseTextChangedAsUnresolvedAndDrawsItWhenItsSectionLoads', async () => {
    const { layer, events, parsed, loaded, flush } = harness();
    parsed.set(3, sectionDocument(chapter.replace('the spleen', 'the gloom')));
    const changed = { ...highlightOf(sectionDocument(chapter), 'the spleen'), id: idA };
    const kept = { ...highlightOf(sectionDocument(chapter), 'never mind'), id: idB };
    expect(await layer.add(changed)).toEqual({ rendered: false, resolution: 'unresolved' });
    expect(await layer.add(kept)).toEqual({ rendered: true, resolution: 'cfi' });
    flush();
    expect(events).toEqual([{ resolved: [idB], unresolved: [idA] }]);
    // The section loads with the text as it was: the highlight is placed after all.
    const view = fakeView(3, sectionDocument(chapter));
    loaded.push(view);
    layer.sectionPrepared(view);
    flush();
    expect(events[1]).toEqual({ resolved: [idA], unresolved: [] });
    expect(layer.ids()).toEqual({ resolved: [idA, idB], unresolved: [] });
  });

  it('PlacesAHighlightInTheLoadedSectionDirectly', async () => {
    const { layer, loaded } = harness();
    const view = fakeView(3, sectionDocument(chapter));
    loaded.push(view);
    layer.sectionPrepared(view);
    const result = await layer.add({ ...highlightOf(sectionDocument(`<p>Foreword.</p>${chapter}`), 'the spleen'), id: idA });
    expect(result).toEqual({ rendered: true, resolution: 'cfi' });
    expect(layer.pulse(idA)).toEqual({ rendered: true, resolution: 'cfi' });
    layer.clear();
  });

  it('RefusesAHighlightOverTheSelectionLimit', async () => {
    const { layer, parsed } = harness();
    parsed.set(3, sectionDocument(chapter));
    const annotation = { ...highlightOf(sectionDocument(chapter), 'the spleen'), id: idA, selectedText: 'x'.repeat(2001) };
    await expect(layer.add(annotation)).rejects.toMatchObject({ code: 'selection-too-long' });
    await expect(layer.add(annotation)).rejects.toBeInstanceOf(BridgeRequestError);
    const atLimit = { ...annotation, selectedText: '\u{1d400}'.repeat(2000) };
    expect((await layer.add(atLimit)).resolution).toBe('unresolved');
  });

  it('ReportsAnUnknownOrUnreadableSectionAsUnresolved', async () => {
    const { layer, events, flush } = harness();
    const annotation = highlightOf(sectionDocument(chapter), 'the spleen');
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
    parsed.set(3, sectionDocument(chapter));
    await layer.add({ ...highlightOf(sectionDocument(chapter), 'the spleen'), id: idA });
    expect(layer.remove(idA)).toEqual({ rendered: false, resolution: 'removed' });
    expect(layer.remove(idA)).toEqual({ rendered: false, resolution: 'not-found' });
    expect(layer.pulse(idA)).toEqual({ rendered: false, resolution: 'not-found' });
    flush();
    expect(events).toEqual([]);
  });
});
