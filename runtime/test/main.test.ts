import { describe, expect, it } from 'vitest';

describe('RuntimePage', () => {
  it('DefinesTheReceiverAndAnswersByAMessageToItsOwnWindow', async () => {
    await import('../src/main');
    const replies: Record<string, unknown>[] = [];
    const bothReplied = new Promise<void>((resolve) => {
      window.addEventListener('message', (event) => {
        const message = event.data as { channel?: string; detail?: Record<string, unknown> };
        if (message.channel !== 'tomekeeper-bridge-response' || message.detail === undefined) return;
        replies.push(message.detail);
        if (replies.length === 2) resolve();
      });
    });
    await window.readerRuntime.receive({ version: 1, id: 'A', generation: 1, method: 'flyToTheMoon', payload: {} });
    await window.readerRuntime.receive({ version: 1, id: 'B', generation: 1, method: 'currentLocator', payload: {} });
    await bothReplied;
    expect(replies.map((reply) => [reply.id, reply.ok, (reply.error as { code: string }).code])).toEqual([
      ['A', false, 'unknown-method'],
      ['B', false, 'publication-not-open'],
    ]);
  });
});
