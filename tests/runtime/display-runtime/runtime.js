// A small stand-in for the reader runtime, for the display tests of the web view host. It
// answers the bridge's envelopes by messages to its own window, as the runtime does, and offers a few test methods that act
// on the book frame.
(() => {
  let latestGeneration = 0;
  const post = (channel, detail) => window.postMessage({ channel, detail }, '*');
  const reply = (request, detail) =>
    post('tomekeeper-bridge-response',
         { version: 1, id: request.id, generation: request.generation, ...detail });
  const succeed = (request, result) => reply(request, { ok: true, result });
  const sendEvent = (generation, event, payload) =>
    post('tomekeeper-bridge-event', { version: 1, generation, event, payload });
  const frame = () => document.getElementById('book');
  const frameState = () => {
    const state = { href: null, scriptRan: false, title: null };
    try {
      state.href = frame().contentWindow.location.href;
      state.scriptRan = frame().contentWindow.scriptRan === true;
      state.title = frame().contentDocument ? frame().contentDocument.title : null;
    } catch (error) {
      state.href = 'inaccessible';
    }
    return state;
  };
  const later = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

  const methods = {
    next: (request) => succeed(request, {
      spineIndex: 0, page: 1, pageCount: 3, atStart: true, atEnd: false,
    }),
    hang: () => {},
    emitEvents: (request) => {
      sendEvent(request.generation - 1, 'locatorChanged',
                { locator: { spineHref: 'stale.xhtml', spineIndex: 0 } });
      sendEvent(request.generation, 'locatorChanged',
                { locator: { spineHref: 'current.xhtml', spineIndex: 1 } });
      succeed(request, {});
    },
    forgeKind: (request) => {
      // A page that claims its reply is an event: it still arrives as a reply.
      reply(request, {
        ok: true, kind: 'event', event: 'locatorChanged',
        payload: { locator: { spineHref: 'forged.xhtml', spineIndex: 0 } },
        result: { forged: false },
      });
    },
    postFromAFrame: (request) => {
      // What a script of a book's frame could try: post on the page's channels, from a frame
      // of the page's origin. Then the real reply, which arrives after it.
      const other = document.createElement('iframe');
      document.body.appendChild(other);
      other.contentWindow.Function('generation', `
        parent.postMessage({ channel: 'tomekeeper-bridge-event', detail: { version: 1, generation,
          event: 'locatorChanged', payload: { locator: { spineHref: 'forged.xhtml', spineIndex: 0 } } } }, '*');
        parent.postMessage({ channel: 'tomekeeper-bridge-response', detail: { version: 1,
          id: '${request.id}', generation, ok: true, result: { forged: true } } }, '*');
      `)(request.generation);
      other.remove();
      succeed(request, { forged: false });
    },
    loadFrame: async (request) => {
      const loaded = new Promise((resolve) => frame().addEventListener('load', resolve, { once: true }));
      frame().src = request.payload.href;
      await Promise.race([loaded, later(2000)]);
      await later(100);
      succeed(request, frameState());
    },
    frameState: (request) => succeed(request, frameState()),
    assignFrameLocation: async (request) => {
      frame().contentWindow.location.href = request.payload.href;
      await later(500);
      succeed(request, frameState());
    },
    // The click only: the test waits for the host's decision on its side.
    clickLink: (request) => {
      frame().contentDocument.getElementById(request.payload.elementID).click();
      succeed(request, {});
    },
    headers: (request) => {
      const xhr = new XMLHttpRequest();
      xhr.open('GET', request.payload.href, true);
      xhr.onload = () => succeed(request, {
        status: xhr.status,
        contentType: xhr.getResponseHeader('Content-Type'),
        cacheControl: xhr.getResponseHeader('Cache-Control'),
        contentSecurityPolicy: xhr.getResponseHeader('Content-Security-Policy'),
        contentTypeOptions: xhr.getResponseHeader('X-Content-Type-Options'),
      });
      xhr.onerror = () => reply(request, { ok: false, error: { code: 'unreadable', message: request.payload.href } });
      xhr.send();
    },
  };

  window.readerRuntime = Object.freeze({
    receive(request) {
      latestGeneration = request.generation;
      const method = methods[request.method];
      if (!method) {
        reply(request, { ok: false, error: { code: 'unknown-method', message: request.method } });
        return;
      }
      method(request);
    },
  });
})();
