import { describe, expect, it } from 'vitest';
import { bridgeCatalogue } from '../../src/bridge/catalogue';

describe('BridgeCatalogue', () => {
  it.each([
    ['Method', bridgeCatalogue.methods.map((method) => method.name)],
    ['Event', bridgeCatalogue.events.map((event) => event.name)],
  ])('NamesEach%sOnce', (_kind, names) => {
    expect(names.length).toBeGreaterThan(0);
    expect(new Set(names).size).toBe(names.length);
  });
});
