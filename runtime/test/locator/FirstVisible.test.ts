import { describe, expect, it } from 'vitest';
import { firstVisiblePosition, type CharacterPlacement } from '../../src/locator/FirstVisible';

describe('FirstVisible', () => {
  function placements(layout: string): (position: number) => CharacterPlacement {
    const map: Record<string, CharacterPlacement> = { b: 'before', v: 'visible', a: 'after', u: 'unplaced' };
    return (position) => map[layout[position] as string] as CharacterPlacement;
  }

  it('FindsTheFirstVisibleCharacter', () => {
    expect(firstVisiblePosition(10, placements('bbbbvvvaaa'))).toBe(4);
    expect(firstVisiblePosition(4, placements('vvaa'))).toBe(0);
  });

  it('StepsOverUnplacedCharacters', () => {
    expect(firstVisiblePosition(12, placements('bubbuuuvuvaa'))).toBe(7);
    expect(firstVisiblePosition(8, placements('uuuuuuvv'))).toBe(6);
  });

  it('FindsNothingOnAPageWithoutText', () => {
    expect(firstVisiblePosition(6, placements('bbbaaa'))).toBeUndefined();
    expect(firstVisiblePosition(4, placements('uuuu'))).toBeUndefined();
    expect(firstVisiblePosition(0, placements(''))).toBeUndefined();
  });

  it('AgreesWithALinearScanOnEveryLayout', () => {
    for (let seed = 0; seed < 400; seed += 1) {
      const length = 1 + (seed % 13);
      const before = seed % 5;
      const visible = (seed >> 2) % 4;
      let layout = 'b'.repeat(before) + 'v'.repeat(visible);
      layout = (layout + 'a'.repeat(length)).slice(0, Math.max(length, layout.length));
      const withGaps = layout
        .split('')
        .map((letter, index) => ((seed * 7 + index * 3) % 5 === 0 ? 'u' : letter))
        .join('');
      const expected = withGaps.split('').findIndex((letter) => letter === 'v');
      const firstNonBefore = withGaps.split('').findIndex((letter) => letter === 'v' || letter === 'a');
      const answer = firstVisiblePosition(withGaps.length, placements(withGaps));
      expect(answer, withGaps).toBe(expected >= 0 && expected === firstNonBefore ? expected : undefined);
    }
  });
});
