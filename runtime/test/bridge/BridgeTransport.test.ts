import { describe, expect, it } from 'vitest';
import { BridgeRequestError } from '../../src/bridge/BridgeRequestError';
import { BridgeTransport, type MethodHandler } from '../../src/bridge/BridgeTransport';

interface Captured {
  type: string;
  detail: Record<string, unknown>;
}

function makeTransport(handlers: Record<string, MethodHandler>, handlerTimeoutMilliseconds?: number) {
  const captured: Captured[] = [];
  const send = (type: string, detail: object) => captured.push({ type, detail: detail as Record<string, unknown> });
  const options = handlerTimeoutMilliseconds === undefined ? {} : { handlerTimeoutMilliseconds };
  const transport = new BridgeTransport(send, new Map(Object.entries(handlers)), options);
  return { transport, captured };
}

function envelope(method: string, payload: unknown = {}, id = '6F1E2D3C-4B5A-4968-8776-A5B4C3D2E1F0', generation = 3) {
  return { version: 1, id, generation, method, payload };
}

describe('BridgeTransport', () => {
  it('AnswersASuccessWithTheEnvelopeOfTheRequest', async () => {
    const { transport, captured } = makeTransport({ currentLocator: () => ({ spineHref: 'a.xhtml', spineIndex: 0 }) });
    await transport.receive(envelope('currentLocator'));
    expect(captured).toEqual([
      {
        type: 'tomekeeper-bridge-response',
        detail: {
          version: 1,
          id: '6F1E2D3C-4B5A-4968-8776-A5B4C3D2E1F0',
          generation: 3,
          ok: true,
          result: { spineHref: 'a.xhtml', spineIndex: 0 },
        },
      },
    ]);
  });

  // The handler is given the payload; undefined fields of its result are left out, and no result
  // is an empty object.
  it.each<[string, unknown, Record<string, unknown>]>([
    ['LeavesOutUndefinedFieldsOfAResult', { page: 1, locatorResolution: undefined }, { page: 1 }],
    ['AnswersAHandlerWithoutResultWithAnEmptyObject', undefined, {}],
  ])('%s', async (_name, result, expected) => {
    let seen: unknown;
    const { transport, captured } = makeTransport({ goTo: (payload) => ((seen = payload), result as object) });
    await transport.receive(envelope('goTo', { href: 'ch1.xhtml#x' }));
    expect(seen).toEqual({ href: 'ch1.xhtml#x' });
    expect(captured[0]?.detail).toMatchObject({ ok: true, result: expected });
    expect(Object.keys(captured[0]?.detail.result as object)).toEqual(Object.keys(expected));
  });

  // A request the runtime cannot run is answered once, with the protocol's version and the
  // request's generation, and its handler never runs.
  it.each<[string, Record<string, unknown>, Record<string, unknown>]>([
    ['AnswersAnUnknownMethodWithAnErrorCode', envelope('flyToTheMoon'), { code: 'unknown-method' }],
    ['AnswersACatalogueMethodWithoutHandlerAsUnsupported', envelope('startSearch', { searchID: 'x', query: 'y' }), { code: 'unsupported-method' }],
    ['RefusesAnotherProtocolVersionWithoutRunningTheHandler', { ...envelope('next'), version: 2 }, { code: 'unsupported-protocol-version' }],
    ['RefusesAPayloadThatIsNotAnObject', envelope('next', [1, 2]), { code: 'malformed-request' }],
  ])('%s', async (_name, request, error) => {
    let ran = false;
    const { transport, captured } = makeTransport({ next: () => ((ran = true), {}) });
    await transport.receive(request);
    expect(ran).toBe(false);
    expect(captured).toHaveLength(1);
    expect(captured[0]?.detail).toMatchObject({ version: 1, ok: false, generation: 3, error });
    expect(typeof (captured[0]?.detail.error as { message: unknown }).message).toBe('string');
  });

  it('RejectsAnEnvelopeWithoutIdSoTheCallFailsAtOnce', async () => {
    const { transport, captured } = makeTransport({ next: () => ({}) });
    await expect(transport.receive({ version: 1, generation: 1, method: 'next', payload: {} })).rejects.toThrow(TypeError);
    await expect(transport.receive('next')).rejects.toThrow(TypeError);
    await expect(transport.receive({ ...envelope('next'), generation: '1' })).rejects.toThrow(TypeError);
    expect(captured).toHaveLength(0);
  });

  it.each<[string, MethodHandler, Record<string, unknown>]>([
    [
      'ReportsAHandlerErrorWithItsCodeAndDiagnostic',
      () => {
        throw new BridgeRequestError('href-not-found', 'no such section', 'missing.xhtml');
      },
      { code: 'href-not-found', message: 'no such section', diagnostic: 'missing.xhtml' },
    ],
    [
      'ReportsAnUnexpectedExceptionAsInternalError',
      async () => {
        throw new RangeError('boom');
      },
      { code: 'internal-error', diagnostic: 'RangeError: boom' },
    ],
  ])('%s', async (_name, handler, error) => {
    const { transport, captured } = makeTransport({ goTo: handler });
    await transport.receive(envelope('goTo', { href: 'missing.xhtml' }));
    expect(captured[0]?.detail).toMatchObject({ ok: false, error });
  });

  it('AnswersEachRequestExactlyOnceInArrivalOrder', async () => {
    const order: string[] = [];
    const slow = () => new Promise((resolve) => setTimeout(() => resolve(order.push('slow')), 20));
    const fast = () => order.push('fast');
    const { transport, captured } = makeTransport({ next: slow, previous: fast });
    const first = transport.receive(envelope('next', {}, 'A'));
    const second = transport.receive(envelope('previous', {}, 'B'));
    await Promise.all([first, second]);
    expect(order).toEqual(['slow', 'fast']);
    expect(captured.map((entry) => entry.detail.id)).toEqual(['A', 'B']);
  });

  it('AnswersAHandlerThatNeverSettlesWithATimeoutAndMovesOn', async () => {
    const { transport, captured } = makeTransport({ next: () => new Promise(() => undefined), previous: () => ({}) }, 10);
    await transport.receive(envelope('next', {}, 'A'));
    await transport.receive(envelope('previous', {}, 'B'));
    expect(captured.map((entry) => [entry.detail.id, entry.detail.ok])).toEqual([
      ['A', false],
      ['B', true],
    ]);
    expect(captured[0]?.detail.error).toMatchObject({ code: 'runtime-timeout' });
  });

  it('SendsEventsOnlyAfterARequestWithTheGenerationOfTheLatest', async () => {
    const { transport, captured } = makeTransport({ next: () => ({}) });
    expect(transport.emit('locatorChanged', { locator: { spineHref: 'a', spineIndex: 0 } })).toBe(false);
    expect(captured).toHaveLength(0);
    await transport.receive(envelope('next', {}, 'A', 4));
    void transport.receive(envelope('next', {}, 'B', 7));
    expect(transport.emit('locatorChanged', { locator: { spineHref: 'a', spineIndex: 0 } })).toBe(true);
    const event = captured.find((entry) => entry.type === 'tomekeeper-bridge-event');
    expect(event?.detail).toEqual({
      version: 1,
      generation: 7,
      event: 'locatorChanged',
      payload: { locator: { spineHref: 'a', spineIndex: 0 } },
    });
  });

  it('CopiesAnEventPayloadForTheWireUnlessItIsGivenAsPlain', async () => {
    const { transport, captured } = makeTransport({ next: () => ({}) });
    await transport.receive(envelope('next'));
    const results = [{ id: '0:1-2', locator: { spineHref: 'a', spineIndex: 0 }, excerpt: 'x' }];
    transport.emit('searchResults', { searchID: 'S', isComplete: false, results, left: undefined });
    transport.emit('searchResults', { searchID: 'S', isComplete: true, results }, 'plain');
    const payloads = captured.filter((entry) => entry.type === 'tomekeeper-bridge-event').map((entry) => entry.detail.payload as Record<string, unknown>);
    expect(payloads[0]).toEqual({ searchID: 'S', isComplete: false, results });
    expect('left' in (payloads[0] as object)).toBe(false);
    expect(payloads[0]?.results).not.toBe(results);
    expect(payloads[1]?.results).toBe(results);
  });

  it('RefusesEventsAndHandlersOutsideTheCatalogue', async () => {
    expect(() => makeTransport({ flyToTheMoon: () => ({}) })).toThrow();
    const { transport } = makeTransport({ next: () => ({}) });
    await transport.receive(envelope('next'));
    expect(() => transport.emit('somethingElse', {})).toThrow();
  });
});
