// Entry point of the runtime page. Runs as a classic script in the head, so `window.readerRuntime`
// is in place before the page's load finishes; requests that come before the body exists wait for it.
import { BridgeTransport } from './bridge/BridgeTransport';
import { loadText } from './publication/ResourceLoader';
import { Reader } from './reader/Reader';
import { makeMethodHandlers, type ReaderOperations } from './reader/ReaderOperations';

declare global {
  interface Window {
    readerRuntime: { receive(request: unknown): Promise<void> };
  }
}

let transport: BridgeTransport | undefined;

const readerReady = new Promise<Reader>((resolve) => {
  const start = (): void => {
    const viewport = document.getElementById('reader-viewport') as HTMLElement;
    const stage = document.getElementById('reader-stage') as HTMLElement;
    const reader = new Reader({
      loadText,
      viewport,
      stage,
      emitLocatorChanged: (locator) => {
        transport?.emit('locatorChanged', { locator });
      },
    });
    let resizeTimer: ReturnType<typeof setTimeout> | undefined;
    window.addEventListener('resize', () => {
      clearTimeout(resizeTimer);
      resizeTimer = setTimeout(() => reader.handleResize(), 150);
    });
    window.matchMedia?.('(prefers-color-scheme: dark)').addEventListener('change', () => reader.handleResize());
    resolve(reader);
  };
  if (document.readyState === 'loading') document.addEventListener('DOMContentLoaded', start, { once: true });
  else start();
});

// Each operation waits for the reader, which exists once the body has been parsed.
const deferredReader = new Proxy({} as ReaderOperations, {
  get:
    (_target, name: string) =>
    async (...args: unknown[]) => {
      const reader = (await readerReady) as unknown as Record<string, (...values: unknown[]) => unknown>;
      return (reader[name] as (...values: unknown[]) => unknown).apply(reader, args);
    },
});

transport = new BridgeTransport(window, makeMethodHandlers(deferredReader));

window.readerRuntime = Object.freeze({
  receive: (request: unknown) => (transport as BridgeTransport).receive(request),
});
