import { describe, expect, it } from 'vitest';
import { blockBoundaries, excerptAround } from '../../src/text/SectionText';
import { findFoldedMatches, TextFolder } from '../../src/text/TextFolding';
import { TextIndex } from '../../src/cfi/TextIndex';
import { xhtml } from '../support/sections';

describe('SectionText', () => {
  it('FindsBlockBoundariesWhereParagraphsTouch', () => {
    const body = xhtml('<p>The end.</p><p>Start <em>again</em>.<br/>Next</p>').body;
    const index = new TextIndex(body);
    expect(index.text).toBe('The end.Start again.Next');
    expect(blockBoundaries(body)).toEqual([8, 20, 24]);
  });

  it('MatchesTextSplitByInlineElementsButNotByBlocks', () => {
    const body = xhtml('<p>a <span>wh</span><b>a</b>le</p><p>wh</p><p>ale</p>').body;
    const index = new TextIndex(body);
    const folder = new TextFolder();
    const matches = findFoldedMatches(folder.fold(index.text, blockBoundaries(body)), folder.foldQuery('whale'));
    expect(matches.map((span) => index.text.slice(span.start, span.end))).toEqual(['whale']);
  });

  it('ExcerptsCutAtWordsWithEllipses', () => {
    const text = `${'lorem ipsum '.repeat(10)}the white whale ${'dolor sit amet '.repeat(10)}`;
    const start = text.indexOf('white');
    const excerpt = excerptAround(text, start, start + 'white whale'.length);
    expect(excerpt.startsWith('…')).toBe(true);
    expect(excerpt.endsWith('…')).toBe(true);
    expect(excerpt).toContain('the white whale dolor');
    expect(excerpt).not.toMatch(/…(orem|psum|rem|sum) /);
    expect(excerpt).toMatch(/…(lorem|ipsum) /);
  });

  it('ExcerptsAShortTextWhole', () => {
    expect(excerptAround('The end.Start', 4, 7, [8])).toBe('The end. Start');
  });
});
