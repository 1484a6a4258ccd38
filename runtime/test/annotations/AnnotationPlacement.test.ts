import { describe, expect, it } from 'vitest';
import type { Locator } from '../../src/bridge/records';
import { TextIndex } from '../../src/cfi/TextIndex';
import { type RuntimeAnnotation } from '../../src/annotations/AnnotationLayer';
import { placeAnnotation, quoteOf } from '../../src/annotations/AnnotationPlacement';
import { textRoot } from '../../src/publication/SectionDocuments';
import { chapter, highlightOf, sectionDocument } from '../support/sections';

function placedText(document: Document, annotation: RuntimeAnnotation): { text?: string; resolution: string } {
  const index = new TextIndex(textRoot(document));
  const placement = placeAnnotation(document, index, annotation);
  if (placement.kind === 'unresolved') return { resolution: 'unresolved' };
  return { text: index.text.slice(placement.start, placement.end), resolution: placement.resolution };
}

describe('AnnotationPlacement', () => {
  it('PlacesAFreshHighlightByItsCfi', () => {
    const document = sectionDocument(chapter);
    const annotation = highlightOf(document, 'never mind how long');
    expect(annotation.locator.cfi).toMatch(/^epubcfi\(\/6\/8\[ch3\]!\/4\/2\[a\],\/1:\d+/);
    expect(placedText(sectionDocument(chapter), annotation)).toEqual({ text: 'never mind how long', resolution: 'cfi' });
  });

  it('FollowsTheIdAssertionsOfTheCfiWhenAParagraphMoved', () => {
    const annotation = highlightOf(sectionDocument(chapter), 'the spleen');
    const edited = sectionDocument(`<p>Foreword.</p>${chapter}`);
    expect(placedText(edited, annotation)).toEqual({ text: 'the spleen', resolution: 'cfi' });
  });

  it('FindsTheSameWordsAfterTheMarkupAroundThemChanged', () => {
    const plain = chapter.replace(/ id="[ab]"/g, '');
    const annotation = highlightOf(sectionDocument(plain), 'the spleen');
    // A new edition wraps words in elements and adds a paragraph before: the CFI leads elsewhere.
    const edited = sectionDocument(`<p>Foreword.</p>${plain.replace('driving off', '<em>driving</em> off')}`);
    // The CFI's own text assertions find the words again near where it led.
    expect(placedText(edited, annotation)).toEqual({ text: 'the spleen', resolution: 'cfi' });
    // Without them (a CFI written elsewhere), the excerpt and its witnesses do.
    const bare = { ...annotation, locator: { ...annotation.locator, cfi: (annotation.locator.cfi as string).replace(/(:\d+)\[[^\]]*\]/g, '$1') } };
    expect(bare.locator.cfi).not.toContain('spleen');
    expect(placedText(edited, bare)).toEqual({ text: 'the spleen', resolution: 'excerpt' });
  });

  it('LeavesAHighlightUnresolvedWhenItsWordsChanged', () => {
    const annotation = highlightOf(sectionDocument(chapter), 'the spleen');
    const edited = sectionDocument(chapter.replace('the spleen', 'the gloom'));
    expect(placedText(edited, annotation)).toEqual({ resolution: 'unresolved' });
  });

  it('DoesNotMoveAShortHighlightToTheSameWordsElsewhere', () => {
    // "the" is highlighted in "regulating the circulation"; that passage is rewritten, and other
    // "the"s remain in the section. None of them may take the highlight.
    const annotation = highlightOf(sectionDocument(chapter), 'the', 3, 1);
    expect(annotation.locator.excerpt?.suffix?.startsWith(' circulation')).toBe(true);
    const edited = sectionDocument(chapter.replace('regulating the circulation', 'keeping my blood moving'));
    expect(placedText(edited, annotation)).toEqual({ resolution: 'unresolved' });
  });

  it('KeepsTheCfiPlacementWhenTheWordsAreStillThere', () => {
    const annotation = highlightOf(sectionDocument(chapter), 'the', 3, 1);
    expect(placedText(sectionDocument(chapter), annotation)).toEqual({ text: 'the', resolution: 'cfi' });
  });

  it('PlacesAHighlightWithAnUnreadableCfiByItsExcerpt', () => {
    const annotation = highlightOf(sectionDocument(chapter), 'little or no money');
    const broken: RuntimeAnnotation = { ...annotation, locator: { ...annotation.locator, cfi: 'epubcfi(/6/8!/4/99/1:0)' } };
    expect(placedText(sectionDocument(chapter), broken)).toEqual({ text: 'little or no money', resolution: 'excerpt' });
  });

  it('UsesTheSuffixOnlyWhenTheExcerptIsTheSelection', () => {
    const locator: Locator = { spineHref: 'a', spineIndex: 0, excerpt: { exact: 'Call me Ishmael. Some', prefix: 'x', suffix: 'y' } };
    expect(quoteOf({ locator, selectedText: 'Call me' })).toEqual({ exact: 'Call me', prefix: 'x' });
    expect(quoteOf({ locator, selectedText: 'Call me Ishmael.  Some' })).toEqual({ exact: 'Call me Ishmael.  Some', prefix: 'x', suffix: 'y' });
  });
});
