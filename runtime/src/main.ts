// Entry point of the runtime page. Runs as a classic script in the head, so `window.readerRuntime`
// is in place before the page's load finishes.
import { BridgeTransport } from './bridge/BridgeTransport';

declare global {
  interface Window {
    readerRuntime: { receive(request: unknown): Promise<void> };
  }
}

const transport = new BridgeTransport(window, new Map());

window.readerRuntime = Object.freeze({
  receive: (request: unknown) => transport.receive(request),
});
