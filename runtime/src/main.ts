// Entry point of the runtime page. Runs as a classic script in the head, so `window.readerRuntime`
// is in place before the page's load finishes; requests that come before the body exists wait for it.
import { AnnotationLayer } from './annotations/AnnotationLayer';
import { BridgeTransport, postToOwnWindow } from './bridge/BridgeTransport';
import { loadBinary, loadBlob, loadText } from './publication/ResourceLoader';
import { SectionDocuments, textRoot } from './publication/SectionDocuments';
import { Reader } from './reader/Reader';
import { makeMethodHandlers, type ReaderOperations } from './reader/ReaderOperations';
import { makeHighlightAndSearchHandlers, type AnnotationOperations, type SearchOperations } from './reader/HighlightAndSearchHandlers';
import { loadSectionBatch } from './search/SectionBatchReading';
import { SearchRunner, type SearchSource } from './search/SearchRunner';
import { SelectionTracker } from './selection/SelectionTracker';

declare global {
  interface Window {
    readerRuntime: { receive(request: unknown): Promise<void> };
  }
}

let transport: BridgeTransport | undefined;

interface Runtime {
  reader: Reader;
  annotations: AnnotationLayer;
  search: SearchRunner;
  selection: SelectionTracker;
}

function liveDocument(reader: Reader, spineIndex: number): Document | undefined {
  for (const view of reader.loadedSections()) {
    if (view.spineIndex !== spineIndex) continue;
    try {
      return view.document;
    } catch {
      return undefined;
    }
  }
  return undefined;
}

function makeRuntime(viewport: HTMLElement, stage: HTMLElement): Runtime {
  // The reader's hooks reach these once they exist, which is before any request can arrive.
  let annotations: AnnotationLayer | undefined;
  let selection: SelectionTracker | undefined;
  let search: SearchRunner | undefined;
  const reader: Reader = new Reader({
    loadText,
    loadSectionBatch,
    // The weighing after an open prepares each section as a search does, and keeps it for the
    // search: the book is read and prepared once for both.
    sectionLength: async (spineIndex) => {
      if (search === undefined) throw new Error('the search is not made yet');
      return (await search.preparedSection(spineIndex)).text.length;
    },
    loadBinary,
    loadBlob,
    viewport,
    stage,
    emitLocatorChanged: (locator) => {
      transport?.emit('locatorChanged', { locator });
    },
    emitBookmarkVisibilityChanged: (visibleBookmarkIDs) => {
      transport?.emit('bookmarkVisibilityChanged', { visibleBookmarkIDs });
    },
    emitLinkActivated: (url) => {
      transport?.emit('linkActivated', { url });
    },
    emitPageTurnRequested: (direction) => {
      transport?.emit('pageTurnRequested', { direction });
    },
    sectionPrepared: (view) => {
      selection?.attach(view);
      annotations?.sectionPrepared(view);
    },
    sectionReleased: (view) => {
      selection?.detach(view);
      annotations?.sectionReleased(view);
    },
    placementChanged: () => {
      annotations?.placementChanged();
      selection?.placementChanged();
    },
    publicationOpening: () => {
      search?.cancelAll();
      search?.forgetSections();
      annotations?.clear();
      documents.clear();
      selection?.reset();
    },
  });
  // Sections are read through the reader's cache of their texts, which its weighing at open fills.
  const documents = new SectionDocuments(
    reader.loadSectionText,
    (spineIndex) => {
      const item = reader.packageDocument?.spine[spineIndex];
      return item === undefined ? undefined : { url: item.url, mediaType: item.mediaType };
    },
    (spineIndex) => liveDocument(reader, spineIndex),
  );
  selection = new SelectionTracker({
    currentSection: () => reader.currentSection,
    emitSelectionAvailabilityChanged: (available, rect) => {
      transport?.emit('selectionAvailabilityChanged', rect === undefined ? { available } : { available, rect });
    },
  });
  annotations = new AnnotationLayer({
    spineIndexOf: (locator) => reader.spineIndexOf(locator),
    parsedSection: async (spineIndex) => {
      const document = await documents.parsedDocument(spineIndex);
      return { document, index: documents.textIndex(document) };
    },
    loadedSections: () => reader.loadedSections(),
    emitResolutionChanged: (resolvedIDs, unresolvedIDs) => {
      transport?.emit('annotationResolutionChanged', { resolvedIDs, unresolvedIDs });
    },
    emitContextMenuRequested: (id, x, y) => {
      transport?.emit('annotationContextMenuRequested', { id, x, y });
    },
  });
  const searchSource: SearchSource = {
    sections: () =>
      (reader.packageDocument?.spine ?? []).flatMap((item) => {
        const cfiSpine = reader.spinePositionOf(item.index);
        return cfiSpine === undefined ? [] : [{ spineIndex: item.index, spineHref: item.href, cfiSpine }];
      }),
    load: async (spineIndex) => {
      const document = await documents.document(spineIndex);
      return { document, index: documents.textIndex(document), root: textRoot(document) };
    },
    markup: async (spineIndex) => {
      const item = reader.packageDocument?.spine[spineIndex];
      if (item === undefined) throw new Error(`no spine item ${spineIndex}`);
      return { text: await reader.loadSectionText(item.url), mediaType: item.mediaType };
    },
    prefetch: (spineIndices) => {
      const spine = reader.packageDocument?.spine ?? [];
      reader.prefetchSectionTexts(spineIndices.flatMap((spineIndex) => spine[spineIndex] ?? []));
    },
    isLive: (spineIndex) => liveDocument(reader, spineIndex) !== undefined,
    totalProgression: (spineIndex, progression) => reader.totalProgression(spineIndex, progression),
    language: () => reader.packageDocument?.language,
  };
  search = new SearchRunner(searchSource, (searchID, results, isComplete) => {
    // The results are plain data, built by the search for the wire.
    transport?.emit('searchResults', { searchID, isComplete, results }, 'plain');
  });

  // In scrolled mode the page moves without a bridge call: bookmarks and the selection follow it,
  // and the native side is told the new place, as after any other move, so that it is saved.
  let scrollTimer: ReturnType<typeof setTimeout> | undefined;
  // Scroll events do not bubble; the viewport's reaches the document in the capture phase.
  document.addEventListener('scroll', () => {
    clearTimeout(scrollTimer);
    const scrolledView = viewport.classList.contains('scrolled') && reader.currentSection !== undefined;
    if (scrolledView) reader.unsettle();
    scrollTimer = setTimeout(() => {
      reader.refreshBookmarkVisibility();
      selection?.placementChanged();
      if (scrolledView) reader.settle().catch(() => undefined);
    }, 100);
  }, { capture: true, passive: true });
  return { reader, annotations, search, selection };
}

const runtimeReady = new Promise<Runtime>((resolve) => {
  const start = (): void => {
    const viewport = document.getElementById('reader-viewport') as HTMLElement;
    const stage = document.getElementById('reader-stage') as HTMLElement;
    const runtime = makeRuntime(viewport, stage);
    const reader = runtime.reader;
    let resizeTimer: ReturnType<typeof setTimeout> | undefined;
    window.addEventListener('resize', () => {
      clearTimeout(resizeTimer);
      resizeTimer = setTimeout(() => reader.handleResize(), 150);
    });
    window.matchMedia?.('(prefers-color-scheme: dark)').addEventListener('change', () => reader.handleResize());
    resolve(runtime);
  };
  if (document.readyState === 'loading') document.addEventListener('DOMContentLoaded', start, { once: true });
  else start();
});
const readerReady = runtimeReady.then((runtime) => runtime.reader);

// Each operation waits for the reader, which exists once the body has been parsed.
const deferredReader = new Proxy({} as ReaderOperations, {
  get:
    (_target, name: string) =>
    async (...args: unknown[]) => {
      const reader = (await readerReady) as unknown as Record<string, (...values: unknown[]) => unknown>;
      return (reader[name] as (...values: unknown[]) => unknown).apply(reader, args);
    },
});

const deferredAnnotations: AnnotationOperations = {
  add: async (annotation) => {
    const runtime = await runtimeReady;
    const answer = await runtime.annotations.add(annotation);
    // A highlight is made from the reader's selection: once it is drawn, the selection goes,
    // and with it the callout, which would otherwise come back at the next move of the page.
    if (answer.rendered) runtime.selection.clearSelection();
    return answer;
  },
  remove: async (id) => (await runtimeReady).annotations.remove(id),
  pulse: async (id) => (await runtimeReady).annotations.pulse(id),
};

const deferredSearch: SearchOperations = {
  start: async (searchID, query) => (await runtimeReady).search.start(searchID, query),
  cancel: (searchID) => {
    void runtimeReady.then((runtime) => runtime.search.cancel(searchID));
  },
};

transport = new BridgeTransport(postToOwnWindow, makeMethodHandlers(deferredReader, makeHighlightAndSearchHandlers(deferredAnnotations, deferredSearch)));

window.readerRuntime = Object.freeze({
  receive: (request: unknown) => (transport as BridgeTransport).receive(request),
});
