import { describe, expect, it } from 'vitest';
import { bridgeCatalogue } from '../../src/bridge/catalogue';
import { makeHighlightAndSearchHandlers, type AnnotationOperations, type SearchOperations } from '../../src/reader/HighlightAndSearchHandlers';
import { makeMethodHandlers, type ReaderOperations } from '../../src/reader/ReaderOperations';

const id = '7c9e6679-7425-40de-944b-e07fc1f90ae7';
const locator = { spineHref: 'text/a.xhtml', spineIndex: 0, cfi: 'epubcfi(/6/2!/4/2,/1:0,/1:3)' };

function recording(calls: unknown[][], searchDone: Promise<void> = new Promise(() => undefined)) {
  const annotations: AnnotationOperations = {
    add: async (annotation) => {
      calls.push(['add', annotation]);
      return { rendered: true, resolution: 'cfi' };
    },
    remove: async (annotationID) => {
      calls.push(['remove', annotationID]);
      return { rendered: false, resolution: 'removed' };
    },
    pulse: async (annotationID) => {
      calls.push(['pulse', annotationID]);
      return { rendered: true, resolution: 'cfi' };
    },
  };
  const search: SearchOperations = {
    start: (searchID, query) => {
      calls.push(['start', searchID, query]);
      return searchDone;
    },
    cancel: (searchID) => {
      calls.push(['cancel', searchID]);
    },
  };
  return makeHighlightAndSearchHandlers(annotations, search);
}

describe('HighlightAndSearchHandlers', () => {
  it('CompleteTheCatalogueWithTheReadersHandlers', () => {
    const handlers = makeMethodHandlers({} as ReaderOperations, recording([]));
    expect(bridgeCatalogue.methods.map((method) => method.name).filter((name) => !handlers.has(name))).toEqual([]);
  });

  it('DecodeAnAnnotationAndPassItOn', async () => {
    const calls: unknown[][] = [];
    const handlers = recording(calls);
    const result = await handlers.get('addAnnotation')?.({ annotation: { id, locator, selectedText: 'abc', color: 'yellow' } });
    expect(result).toEqual({ rendered: true, resolution: 'cfi' });
    expect(calls).toEqual([['add', { id, locator, selectedText: 'abc', color: 'yellow' }]]);
  });

  it('RefuseMalformedRequests', () => {
    const handlers = recording([]);
    const refusals: [string, Record<string, unknown>][] = [
      ['addAnnotation', { annotation: { id, locator, selectedText: 'abc', color: 'green' } }],
      ['addAnnotation', { annotation: { id: 'not-a-uuid', locator, selectedText: 'abc', color: 'yellow' } }],
      ['addAnnotation', { annotation: { id, locator, color: 'yellow' } }],
      ['removeAnnotation', {}],
      ['pulseAnnotation', { id: 12 }],
      ['startSearch', { searchID: id }],
      ['startSearch', { searchID: 'x', query: 'whale' }],
      ['cancelSearch', {}],
    ];
    for (const [method, payload] of refusals) {
      expect(() => handlers.get(method)?.(payload), method).toThrow(expect.objectContaining({ code: 'invalid-payload' }));
    }
  });

  it('AnswerStartSearchAtOnceWhileTheSearchRuns', () => {
    const calls: unknown[][] = [];
    const handlers = recording(calls);
    expect(handlers.get('startSearch')?.({ searchID: id, query: 'whale' })).toEqual({ searchID: id });
    expect(handlers.get('cancelSearch')?.({ searchID: id })).toEqual({});
    expect(calls).toEqual([
      ['start', id, 'whale'],
      ['cancel', id],
    ]);
  });
});
