// The page's end of the bridge: takes request envelopes from `window.readerRuntime.receive`, runs
// them one at a time in arrival order, and answers each exactly once by a message that the window
// posts to itself. The native forwarder takes only messages whose source is this window, so a
// book's frame, which shares the page's origin, cannot speak for the runtime. Events carry the generation of the latest request, so the native side can drop those of an
// earlier page load; before the first request no event can be sent at all.
import { BridgeRequestError } from './BridgeRequestError';
import { bridgeCatalogue, bridgeEventNames, bridgeMethodNames } from './catalogue';

export type BridgePayload = Record<string, unknown>;
export type MethodHandler = (payload: BridgePayload) => unknown;

export interface BridgeReplyDetail {
  version: number;
  id: string;
  generation: number;
  ok: boolean;
  result?: unknown;
  error?: { code: string; message: string; diagnostic?: string };
}

export interface BridgeEventDetail {
  version: number;
  generation: number;
  event: string;
  payload: BridgePayload;
}

export interface BridgeTransportOptions {
  // A handler that has not settled by then is answered with "runtime-timeout", so that the native
  // side hears a failure from the runtime instead of its own timeout, and the queue moves on.
  handlerTimeoutMilliseconds?: number;
}

// Hands a reply or event to the native side under its channel (the catalogue's response or event
// name).
export type BridgeSend = (channel: string, detail: BridgeReplyDetail | BridgeEventDetail) => void;

// The page's way up: a message to its own window, which the forwarder checks by its source. The
// target origin is '*' because the message never leaves this window, and the private scheme's
// origin has no spelling that postMessage takes.
export function postToOwnWindow(channel: string, detail: BridgeReplyDetail | BridgeEventDetail): void {
  window.postMessage({ channel, detail }, '*');
}

const defaultHandlerTimeoutMilliseconds = 9000;

// What an event's payload is made of. 'plain': only objects, arrays, strings, finite numbers and
// booleans, with no undefined field, as JSON would carry it. The search's results are such, and a
// copy of thousands of them in every search costs more than it is worth. 'any': anything else.
export type PayloadForm = 'plain' | 'any';

export function isPlainObject(value: unknown): value is BridgePayload {
  return typeof value === 'object' && value !== null && !Array.isArray(value);
}

// Strips `undefined` fields and anything that JSON can't carry, so the detail is a plain object
// that the window's message can carry and the forwarding script can spread and post.
function toWireValue(value: unknown): unknown {
  if (value === undefined) return {};
  return JSON.parse(JSON.stringify(value)) as unknown;
}

export class BridgeTransport {
  private readonly send: BridgeSend;
  private readonly handlers: ReadonlyMap<string, MethodHandler>;
  private readonly handlerTimeoutMilliseconds: number;
  private queue: Promise<void> = Promise.resolve();
  private latestGeneration: number | undefined;

  constructor(send: BridgeSend, handlers: ReadonlyMap<string, MethodHandler>, options: BridgeTransportOptions = {}) {
    for (const name of handlers.keys()) {
      if (!bridgeMethodNames.has(name)) throw new Error(`handler for a method outside the catalogue: ${name}`);
    }
    this.send = send;
    this.handlers = handlers;
    this.handlerTimeoutMilliseconds = options.handlerTimeoutMilliseconds ?? defaultHandlerTimeoutMilliseconds;
  }

  get generation(): number | undefined {
    return this.latestGeneration;
  }

  // Accepts one request envelope. The returned promise settles when the reply has been sent; it
  // rejects only when the envelope has no id and generation to answer to, which the native side
  // sees as a failed script call at once instead of a timeout.
  receive(request: unknown): Promise<void> {
    if (!isPlainObject(request) || typeof request.id !== 'string' || !isWireGeneration(request.generation)) {
      return Promise.reject(new TypeError('a bridge request needs a string id and a numeric generation'));
    }
    const id = request.id;
    const generation = request.generation;
    this.latestGeneration = generation;

    const run = async (): Promise<void> => {
      try {
        const result = await this.dispatch(request);
        this.reply({ version: bridgeCatalogue.protocolVersion, id, generation, ok: true, result: toWireValue(result) });
      } catch (error) {
        this.reply({ version: bridgeCatalogue.protocolVersion, id, generation, ok: false, error: errorPayload(error) });
      }
    };
    const done = this.queue.then(run);
    this.queue = done;
    return done;
  }

  // Sends an event with the generation of the latest request. Returns false when no request has
  // arrived yet, in which case nothing is sent. A payload the caller gives as 'plain' goes as it
  // is, without the copy that makes any other one fit for the wire.
  emit(event: string, payload: BridgePayload, form: PayloadForm = 'any'): boolean {
    if (!bridgeEventNames.has(event)) throw new Error(`event outside the catalogue: ${event}`);
    if (this.latestGeneration === undefined) return false;
    const detail: BridgeEventDetail = {
      version: bridgeCatalogue.protocolVersion,
      generation: this.latestGeneration,
      event,
      payload: form === 'plain' ? payload : (toWireValue(payload) as BridgePayload),
    };
    this.send(bridgeCatalogue.eventEventName, detail);
    return true;
  }

  private async dispatch(request: BridgePayload): Promise<unknown> {
    if (request.version !== bridgeCatalogue.protocolVersion) {
      throw new BridgeRequestError(
        'unsupported-protocol-version',
        `protocol version ${String(request.version)} is not supported`,
      );
    }
    const method = request.method;
    if (typeof method !== 'string') throw new BridgeRequestError('malformed-request', 'the request has no method name');
    const payload = request.payload;
    if (!isPlainObject(payload)) throw new BridgeRequestError('malformed-request', 'the request payload is not an object');
    const handler = this.handlers.get(method);
    if (handler === undefined) {
      if (bridgeMethodNames.has(method)) {
        throw new BridgeRequestError('unsupported-method', `the method ${method} is not available in this runtime`);
      }
      throw new BridgeRequestError('unknown-method', `unknown method ${method}`);
    }
    return await this.withTimeout(method, Promise.resolve().then(() => handler(payload)));
  }

  private withTimeout(method: string, work: Promise<unknown>): Promise<unknown> {
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => {
        reject(new BridgeRequestError('runtime-timeout', `${method} did not finish in time`));
      }, this.handlerTimeoutMilliseconds);
      work.then(
        (value) => {
          clearTimeout(timer);
          resolve(value);
        },
        (error: unknown) => {
          clearTimeout(timer);
          reject(error);
        },
      );
    });
  }

  private reply(detail: BridgeReplyDetail): void {
    this.send(bridgeCatalogue.responseEventName, detail);
  }
}

function isWireGeneration(value: unknown): value is number {
  return typeof value === 'number' && Number.isInteger(value) && value >= 0;
}

function errorPayload(error: unknown): { code: string; message: string; diagnostic?: string } {
  if (error instanceof BridgeRequestError) {
    return error.diagnostic === undefined
      ? { code: error.code, message: error.message }
      : { code: error.code, message: error.message, diagnostic: error.diagnostic };
  }
  const diagnostic = error instanceof Error ? `${error.name}: ${error.message}` : String(error);
  return { code: 'internal-error', message: 'the reader runtime failed', diagnostic };
}
