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
  // [name, the highlighted words and which of them, the section as it is now, where it lands]
  it.each<[string, [string, number], string, { text?: string; resolution: string }]>([
    ['PlacesAFreshHighlightByItsCfi', ['never mind how long', 0], chapter, { text: 'never mind how long', resolution: 'cfi' }],
    ['FollowsTheIdAssertionsOfTheCfiWhenAParagraphMoved', ['the spleen', 0], `<p>Foreword.</p>${chapter}`, { text: 'the spleen', resolution: 'cfi' }],
    ['LeavesAHighlightUnresolvedWhenItsWordsChanged', ['the spleen', 0], chapter.replace('the spleen', 'the gloom'), { resolution: 'unresolved' }],
    ['KeepsTheCfiPlacementWhenTheWordsAreStillThere', ['the', 1], chapter, { text: 'the', resolution: 'cfi' }],
    // "the" is highlighted in "regulating the circulation"; that passage is rewritten, and other
    // "the"s remain in the section. None of them may take the highlight.
    ['DoesNotMoveAShortHighlightToTheSameWordsElsewhere', ['the', 1], chapter.replace('regulating the circulation', 'keeping my blood moving'), { resolution: 'unresolved' }],
  ])('%s', (_name, [words, occurrence], now, expected) => {
    const annotation = highlightOf(sectionDocument(chapter), words, 3, occurrence);
    expect(placedText(sectionDocument(now), annotation)).toEqual(expected);
  });

  it('DescribesAHighlightByACfiIntoItsParagraphAndItsOwnOccurrence', () => {
    expect(highlightOf(sectionDocument(chapter), 'never mind how long').locator.cfi).toMatch(/^epubcfi\(\/6\/8\[ch3\]!\/4\/2\[a\],\/1:\d+/);
    expect(highlightOf(sectionDocument(chapter), 'the', 3, 1).locator.excerpt?.suffix?.startsWith(' circulation')).toBe(true);
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
