import { describe, expect, it } from 'vitest';
import { sourceURLs, unquotedFamily } from '../../src/publication/ObfuscatedFonts';

describe('reading @font-face rules', () => {
  it('finds every URL of a src value', () => {
    expect(sourceURLs(`url("a.woff2") format("woff2"), url('b c.otf'), url(d.ttf) format("truetype"), local(Serif)`)).toEqual([
      'a.woff2',
      'b c.otf',
      'd.ttf',
    ]);
  });

  it('takes the quotes off a family name', () => {
    expect(unquotedFamily('"OldStandard"')).toBe('OldStandard');
    expect(unquotedFamily("'Old Standard'")).toBe('Old Standard');
    expect(unquotedFamily('Plain')).toBe('Plain');
  });
});
