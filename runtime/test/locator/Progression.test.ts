import { describe, expect, it } from 'vitest';
import { SectionWeights } from '../../src/locator/Progression';

describe('SectionWeights', () => {
  it('WeightsProgressionBySectionLengthAndLocatesABookProgressionInItsSection', () => {
    const weights = new SectionWeights(3);
    weights.setLength(0, 100);
    weights.setLength(1, 300);
    weights.setLength(2, 600);
    expect(weights.totalProgression(0, 0)).toBe(0);
    expect(weights.totalProgression(1, 0)).toBeCloseTo(0.1);
    expect(weights.totalProgression(1, 0.5)).toBeCloseTo(0.25);
    expect(weights.totalProgression(2, 1)).toBe(1);
    expect(weights.locate(0.25)).toEqual({ spineIndex: 1, sectionProgression: 0.5 });
    expect(weights.locate(1)).toEqual({ spineIndex: 2, sectionProgression: 1 });
    expect(weights.locate(-3)).toEqual({ spineIndex: 0, sectionProgression: 0 });
    for (const value of [0, 0.05, 0.1, 0.37, 0.99]) {
      const located = weights.locate(value);
      expect(weights.totalProgression(located.spineIndex, located.sectionProgression)).toBeCloseTo(value);
    }
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

  it('GivesAnEmptySectionAPlace', () => {
    const weights = new SectionWeights(2);
    weights.setLength(0, 0);
    weights.setLength(1, 99);
    expect(weights.totalProgression(1, 0)).toBeCloseTo(0.01);
  });
});
