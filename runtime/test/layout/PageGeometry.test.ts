import { describe, expect, it } from 'vitest';
import { clampPage, effectiveColumnCount, pageCountForExtent, pageForCoordinate, pageForProgression, progressionForPage, translationForPage, type PageGeometry } from '../../src/layout/PageGeometry';

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
