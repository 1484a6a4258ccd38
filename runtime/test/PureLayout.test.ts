import { describe, expect, it } from 'vitest';
import {
  clampPage,
  effectiveColumnCount,
  pageCountForExtent,
  pageForCoordinate,
  pageForProgression,
  progressionForPage,
  translationForPage,
  type PageGeometry,
} from '../src/layout/PageGeometry';
import { excerptAt, findExcerpt } from '../src/locator/Excerpt';
import { firstVisiblePosition, type CharacterPlacement } from '../src/locator/FirstVisible';
import { SectionWeights } from '../src/locator/Progression';

const forward: PageGeometry = { axis: 'horizontal', progression: 'forward', pageSize: 800, gap: 40 };
const reverse: PageGeometry = { ...forward, progression: 'reverse' };

describe('PageGeometry', () => {
  it('CountsPagesOfAColumnExtent', () => {
    expect(pageCountForExtent(800, forward)).toBe(1);
    expect(pageCountForExtent(0, forward)).toBe(1);
    expect(pageCountForExtent(800.4, forward)).toBe(1);
    expect(pageCountForExtent(801, forward)).toBe(2);
    // Three pages: 800 + 40 + 800 + 40 + 800.
    expect(pageCountForExtent(2480, forward)).toBe(3);
    expect(pageCountForExtent(2481, forward)).toBe(4);
  });

  it('TranslatesByWholeStridesInBothDirections', () => {
    expect(translationForPage(0, forward)).toBe(-0);
    expect(translationForPage(2, forward)).toBe(-1680);
    expect(translationForPage(2, reverse)).toBe(1680);
  });

  it('FindsThePageOfACoordinate', () => {
    expect(pageForCoordinate(0, forward)).toBe(0);
    expect(pageForCoordinate(839, forward)).toBe(0);
    expect(pageForCoordinate(840, forward)).toBe(1);
    expect(pageForCoordinate(-5, forward)).toBe(0);
    // Reverse pages run leftwards from the right edge of the first page.
    expect(pageForCoordinate(700, reverse, 800)).toBe(0);
    expect(pageForCoordinate(-41, reverse, 800)).toBe(1);
  });

  it('MapsProgressionToPagesAndBack', () => {
    expect(progressionForPage(0, 1)).toBe(0);
    expect(progressionForPage(3, 4)).toBe(0.75);
    for (let page = 0; page < 7; page += 1) expect(pageForProgression(progressionForPage(page, 7), 7)).toBe(page);
    expect(pageForProgression(1, 4)).toBe(3);
    expect(pageForProgression(Number.NaN, 4)).toBe(0);
    expect(clampPage(9, 3)).toBe(2);
    expect(clampPage(-1, 3)).toBe(0);
  });

  it('ChoosesColumnsByLayoutAndWindow', () => {
    expect(effectiveColumnCount('adaptive', 1280, 800, 'horizontal')).toBe(2);
    expect(effectiveColumnCount('adaptive', 900, 800, 'horizontal')).toBe(1);
    expect(effectiveColumnCount('adaptive', 1100, 1400, 'horizontal')).toBe(1);
    expect(effectiveColumnCount('doublePage', 600, 800, 'horizontal')).toBe(2);
    expect(effectiveColumnCount('singlePage', 1600, 800, 'horizontal')).toBe(1);
    expect(effectiveColumnCount('doublePage', 1600, 800, 'vertical')).toBe(1);
  });
});

describe('SectionWeights', () => {
  it('WeightsProgressionBySectionLength', () => {
    const weights = new SectionWeights(3);
    weights.setLength(0, 100);
    weights.setLength(1, 300);
    weights.setLength(2, 600);
    expect(weights.totalProgression(0, 0)).toBe(0);
    expect(weights.totalProgression(1, 0)).toBeCloseTo(0.1);
    expect(weights.totalProgression(1, 0.5)).toBeCloseTo(0.25);
    expect(weights.totalProgression(2, 1)).toBe(1);
  });

  it('EstimatesUnknownSectionsByTheMeanOfKnownOnes', () => {
    const weights = new SectionWeights(4);
    expect(weights.totalProgression(2, 0)).toBe(0.5);
    weights.setLength(0, 100);
    weights.setLength(1, 300);
    // Sections 2 and 3 count 200 each: 400 before section 2 out of 800.
    expect(weights.totalProgression(2, 0)).toBeCloseTo(0.5);
    expect(weights.totalProgression(1, 0)).toBeCloseTo(0.125);
  });

  it('LocatesABookProgressionInItsSection', () => {
    const weights = new SectionWeights(3);
    weights.setLength(0, 100);
    weights.setLength(1, 300);
    weights.setLength(2, 600);
    expect(weights.locate(0.25)).toEqual({ spineIndex: 1, sectionProgression: 0.5 });
    expect(weights.locate(1)).toEqual({ spineIndex: 2, sectionProgression: 1 });
    expect(weights.locate(-3)).toEqual({ spineIndex: 0, sectionProgression: 0 });
    for (const value of [0, 0.05, 0.1, 0.37, 0.99]) {
      const located = weights.locate(value);
      expect(weights.totalProgression(located.spineIndex, located.sectionProgression)).toBeCloseTo(value);
    }
  });

  it('GivesAnEmptySectionAPlace', () => {
    const weights = new SectionWeights(2);
    weights.setLength(0, 0);
    weights.setLength(1, 99);
    expect(weights.totalProgression(1, 0)).toBeCloseTo(0.01);
  });
});

describe('Excerpt', () => {
  const text = 'It was the best of times,\n   it was the worst of times, it was the age of wisdom, it was the age of foolishness, it was the epoch of belief.';

  it('TakesTheTextAtAPositionWithItsContext', () => {
    const position = text.indexOf('worst');
    const excerpt = excerptAt(text, position);
    expect(excerpt?.exact.startsWith('worst of times, it was the age')).toBe(true);
    expect(excerpt?.prefix?.endsWith('best of times, it was the ')).toBe(true);
    expect(excerpt?.suffix?.length).toBeGreaterThan(0);
  });

  it('GivesNoExcerptForBlankText', () => {
    expect(excerptAt('   \n  ', 0)).toBeUndefined();
  });

  it('FindsAnExcerptAgainAcrossDifferentWhiteSpace', () => {
    const position = text.indexOf('worst');
    const excerpt = excerptAt(text, position);
    if (excerpt === undefined) throw new Error('no excerpt');
    expect(findExcerpt(text, excerpt)).toBe(position);
    const reflowed = text.replace(/\s+/g, '  \n');
    expect(findExcerpt(reflowed, excerpt)).toBe(reflowed.indexOf('worst'));
  });

  it('PrefersTheMatchWhoseContextAgrees', () => {
    const repeated = 'alpha it was the age beta. gamma it was the age delta.';
    expect(findExcerpt(repeated, { exact: 'it was the age', prefix: 'gamma ', suffix: ' delta' })).toBe(repeated.lastIndexOf('it was'));
    expect(findExcerpt(repeated, { exact: 'it was the age', prefix: 'alpha ' })).toBe(repeated.indexOf('it was'));
  });

  it('PrefersTheMatchNearestToTheExpectedPosition', () => {
    const repeated = 'x la y la z la w';
    expect(findExcerpt(repeated, { exact: 'la' }, 12)).toBe(12);
    expect(findExcerpt(repeated, { exact: 'la' }, 0)).toBe(2);
  });

  it('FindsNothingForMissingText', () => {
    expect(findExcerpt(text, { exact: 'not in the book' })).toBeUndefined();
  });
});

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
