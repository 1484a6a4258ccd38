import { describe, expect, it } from 'vitest';
import { BridgeRequestError } from '../../src/bridge/BridgeRequestError';
import { bridgeCatalogue } from '../../src/bridge/catalogue';
import { makeMethodHandlers, type ReaderOperations } from '../../src/reader/ReaderOperations';

function recordingReader(calls: unknown[][]): ReaderOperations {
  return new Proxy({} as ReaderOperations, {
    get:
      (_target, name: string) =>
      async (...args: unknown[]) => {
        calls.push([name, ...args]);
        if (name === 'tableOfContents') return [];
        if (name === 'currentSelection') return undefined;
        if (name === 'configureBookmarkVisibility') return ['B'];
        return { called: name };
      },
  });
}

const locator = { spineHref: 'text/a.xhtml', spineIndex: 2, cfi: 'epubcfi(/6/4!/4/2/1:0)', sectionProgression: 0.5, excerpt: { exact: 'x', prefix: null } };

describe('ReaderOperations', () => {
  it('BindsEveryCatalogueMethodButHighlightsAndSearch', () => {
    const handlers = makeMethodHandlers(recordingReader([]));
    const unbound = bridgeCatalogue.methods.map((method) => method.name).filter((name) => !handlers.has(name));
    expect(unbound).toEqual(['addAnnotation', 'removeAnnotation', 'pulseAnnotation', 'startSearch', 'cancelSearch']);
  });

  it('TellsTheTwoShapesOfGoToApart', async () => {
    const calls: unknown[][] = [];
    const handlers = makeMethodHandlers(recordingReader(calls));
    await handlers.get('goTo')?.({ href: 'text/a.xhtml#p' });
    await handlers.get('goTo')?.({ locator });
    expect(calls).toEqual([
      ['goTo', { kind: 'href', href: 'text/a.xhtml#p' }],
      [
        'goTo',
        {
          kind: 'locator',
          locator: { spineHref: 'text/a.xhtml', spineIndex: 2, cfi: 'epubcfi(/6/4!/4/2/1:0)', sectionProgression: 0.5, excerpt: { exact: 'x' } },
        },
      ],
    ]);
  });

  it('RefusesInvalidPayloadsBeforeTheReaderSeesThem', async () => {
    const calls: unknown[][] = [];
    const handlers = makeMethodHandlers(recordingReader(calls));
    const refusals: [string, Record<string, unknown>][] = [
      ['goTo', {}],
      ['goTo', { locator: { spineHref: 'a' } }],
      ['goTo', { locator: { ...locator, spineIndex: 1.5 } }],
      ['open', { publication: { publicationID: 'x', packageURL: 'p', resourceBaseURL: 'b', accessMode: 'fileSystem' } }],
      ['configureReadingMode', { mode: 'sideways' }],
      ['configurePageLayout', {}],
      ['configureTheme', { theme: { mode: 'sepia' } }],
      ['configureScrolledContentWidth', { preset: 'wide', maxInlineSize: 840.5 }],
      ['configureTypography', { font: { mode: 'bookDefault' } }],
      [
        'configureTypography',
        {
          font: { mode: 'bookDefault', fallbackStack: [] },
          fontScale: { mode: 'value' },
          lineHeight: { mode: 'bookDefault' },
          letterSpacing: { mode: 'normal' },
          pageMargins: { mode: 'bookDefault' },
        },
      ],
      ['configureBookmarkVisibility', { bookmarks: [{ id: 'A' }] }],
    ];
    for (const [method, payload] of refusals) {
      const outcome = (async () => handlers.get(method)?.(payload))();
      await expect(outcome, method).rejects.toBeInstanceOf(BridgeRequestError);
      await outcome.catch((error: BridgeRequestError) => expect(error.code).toBe('invalid-payload'));
    }
    expect(calls).toEqual([]);
  });

  it('WrapsResultsInTheirRecords', async () => {
    const handlers = makeMethodHandlers(recordingReader([]));
    expect(await handlers.get('tableOfContents')?.({})).toEqual({ items: [] });
    expect(await handlers.get('currentSelection')?.({})).toEqual({});
    expect(await handlers.get('configureBookmarkVisibility')?.({ bookmarks: [{ id: 'B', locator }] })).toEqual({ visibleBookmarkIDs: ['B'] });
  });

  it('DecodesATypographyRequest', async () => {
    const calls: unknown[][] = [];
    const handlers = makeMethodHandlers(recordingReader(calls));
    const request = {
      font: { mode: 'systemFont', stableName: 'Georgia', cssFamilyName: 'Georgia', fallbackStack: ['-apple-system', 'sans-serif'] },
      fontScale: { mode: 'value', value: 1.2 },
      lineHeight: { mode: 'bookDefault' },
      letterSpacing: { mode: 'value', value: -0.05 },
      pageMargins: { mode: 'preset', inlinePercentage: 7 },
    };
    await handlers.get('configureTypography')?.(request);
    expect(calls).toEqual([['configureTypography', request]]);
  });
});
