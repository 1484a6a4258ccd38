import { describe, expect, it } from 'vitest';
import { TextIndex } from '../../src/cfi/TextIndex';
import { textRoot } from '../../src/publication/SectionDocuments';
import { SelectionChangeFilter } from '../../src/selection/SelectionRecord';
import { chapter, highlightOf, sectionDocument } from '../support/sections';

describe('SelectionRecord', () => {
  it('DescribesASelectionWithARangeCfiAndItsWitnesses', () => {
    const document = sectionDocument(chapter);
    const annotation = highlightOf(document, 'Some years ago');
    expect(annotation.selectedText).toBe('Some years ago');
    expect(annotation.locator.excerpt).toEqual({ exact: 'Some years ago', prefix: 'Call me Ishmael. ', suffix: ', never mind how long precisely,' });
    expect(annotation.locator.sectionProgression).toBeCloseTo(17 / new TextIndex(textRoot(document)).text.length);
  });

  it('ReportsEveryAppearanceChangeAndDisappearanceOnce', () => {
    const filter = new SelectionChangeFilter();
    const rect = { x: 1, y: 2, width: 3, height: 4 };
    expect(filter.accept({ available: false }, '')).toBe(false);
    expect(filter.accept({ available: true, rect }, 'a')).toBe(true);
    expect(filter.accept({ available: true, rect }, 'a')).toBe(false);
    expect(filter.accept({ available: true, rect }, 'b')).toBe(true);
    expect(filter.accept({ available: true, rect: { ...rect, y: 40 } }, 'b')).toBe(true);
    expect(filter.accept({ available: false }, '')).toBe(true);
    expect(filter.accept({ available: false }, '')).toBe(false);
  });
});
