import { describe, expect, it } from 'vitest';
import { cfiForRange } from '../../src/cfi/CfiDocument';
import { runtimeNodeAttribute } from '../../src/cfi/ignoredNodes';
import { TextIndex } from '../../src/cfi/TextIndex';
import { parseSectionDocument, textRoot } from '../../src/publication/SectionDocuments';
import { prepareSectionFromMarkup } from '../../src/search/MarkupPreparation';
import { cfiForSpan, prepareSection, PreparedSections, type PreparedSection } from '../../src/search/PreparedSection';
import { blockBoundaries, rangeForSpan } from '../../src/text/SectionText';
import { TextFolder } from '../../src/text/TextFolding';
import { xhtmlText } from '../support/sections';

const spine = { spineCfiStep: 6, itemCfiStep: 4, idref: 'chapter' };

function prepared(document: Document): { section: PreparedSection; index: TextIndex } {
  const root = textRoot(document);
  const index = new TextIndex(root);
  return { section: prepareSection(index, root, new TextFolder('en'), 'en'), index };
}

// Every span of the section's text, written both ways.
function expectSameCfisForEverySpan(document: Document): number {
  const { section, index } = prepared(document);
  let compared = 0;
  for (let start = 0; start < index.text.length; start += 1) {
    for (let end = start + 1; end <= index.text.length; end += 1) {
      const range = rangeForSpan(index, start, end) as Range;
      expect(cfiForSpan(section, start, end, spine), `[${start}, ${end})`).toBe(cfiForRange(range, spine, index));
      compared += 1;
    }
  }
  return compared;
}

describe('PreparedSection', () => {
  it('WritesTheCfiOfEverySpanAsTheDocumentWouldAcrossInlineMarkupIdsAndComments', () => {
    const document = parseSectionDocument(
      xhtmlText(
        '<h1 id="top">Call <em>me</em> Ish<b>ma</b>el.</h1><!-- a note --><div><p id="p1">Some <span><i>years</i> ago</span>' +
          '<!-- x --> never</p><p>mind <sup>how</sup> long</p></div><p>pre<br/>cisely</p>',
      ),
      'application/xhtml+xml',
    );
    expect(expectSameCfisForEverySpan(document)).toBeGreaterThan(1000);
  });

  it('LooksThroughRuntimeNodesAndEmptyTextsAsTheDocumentDoes', () => {
    const document = parseSectionDocument(xhtmlText('<p>one <em>two</em> three</p><p>four five</p>'), 'application/xhtml+xml');
    const body = textRoot(document) as Element;
    const mark = document.createElementNS('http://www.w3.org/1999/xhtml', 'span');
    mark.setAttribute(runtimeNodeAttribute, '');
    mark.textContent = 'runtime text';
    const first = body.firstElementChild as Element;
    first.insertBefore(mark, first.childNodes[1] as Node);
    first.appendChild(document.createTextNode(''));
    body.insertBefore(document.createTextNode(''), body.lastElementChild);
    expectSameCfisForEverySpan(document);
  });

  it('EscapesIdsAndAssertionsAsTheDocumentWould', () => {
    const document = parseSectionDocument(xhtmlText('<p id="a[b],c">x,y;z=(w)^ [v]</p><div id="d^e"><p>(f)</p></div>'), 'application/xhtml+xml');
    expect(expectSameCfisForEverySpan(document)).toBeGreaterThan(100);
  });

  it('WritesTheCfiOfAnHtmlSectionAsTheDocumentWould', () => {
    const document = parseSectionDocument('<html><body><p>Loose <b>html</b> text<p>and more', 'text/html');
    expectSameCfisForEverySpan(document);
  });

  it('HoldsTheTextBoundariesAndFoldedTextOfItsSection', () => {
    const document = parseSectionDocument(xhtmlText('<p>The Whale.</p><p>Caf\u00e9</p>'), 'application/xhtml+xml');
    const { section, index } = prepared(document);
    expect(section.text).toBe(index.text);
    expect(section.boundaries).toEqual(blockBoundaries(textRoot(document)));
    expect(section.folded.text).toBe('the whale. cafe');
    expect(section.language).toBe('en');
  });

  it('FoldsItsTextOnlyOnceASearchFirstReadsIt', () => {
    let folds = 0;
    class CountingFolder extends TextFolder {
      override fold(original: string, boundaries: readonly number[] = []) {
        folds += 1;
        return super.fold(original, boundaries);
      }
    }
    const folder = new CountingFolder('en');
    const document = parseSectionDocument(xhtmlText('<p>The Whale.</p>'), 'application/xhtml+xml');
    const root = textRoot(document);
    const sections = [prepareSection(new TextIndex(root), root, folder, 'en'), prepareSectionFromMarkup(xhtmlText('<p>The Whale.</p>'), 'application/xhtml+xml', folder, 'en') as PreparedSection];
    for (const section of sections) {
      folds = 0;
      expect(section.text).toBe('The Whale.');
      expect(folds).toBe(0);
      expect(section.folded.text).toBe('the whale.');
      expect(section.folded.text).toBe('the whale.');
      expect(folds).toBe(1);
    }
  });

  it('HasNoCfiForASectionWithoutText', () => {
    const { section } = prepared(parseSectionDocument(xhtmlText(''), 'application/xhtml+xml'));
    expect(cfiForSpan(section, 0, 1, spine)).toBeUndefined();
  });
});

describe('PreparedSections', () => {
  const section = (bytes: number): PreparedSection => ({ bytes }) as PreparedSection;

  it('LetsTheLeastRecentlyUsedSectionsGoOnceTheBudgetIsPassed', () => {
    const sections = new PreparedSections(100);
    sections.keep(0, section(40), sections.epoch);
    sections.keep(1, section(40), sections.epoch);
    expect(sections.get(0)).toBeDefined();
    sections.keep(2, section(40), sections.epoch);
    expect(sections.get(1)).toBeUndefined();
    expect(sections.get(0)).toBeDefined();
    expect(sections.get(2)).toBeDefined();
    expect(sections.bytes).toBe(80);
  });

  it('KeepsNothingPreparedBeforeItForgotItsSections', () => {
    const sections = new PreparedSections();
    const before = sections.epoch;
    sections.keep(0, section(10), before);
    sections.forget();
    expect(sections.get(0)).toBeUndefined();
    sections.keep(1, section(10), before);
    expect(sections.get(1)).toBeUndefined();
    sections.keep(1, section(10), sections.epoch);
    expect(sections.get(1)).toBeDefined();
  });

  it('KeepsNoSectionLargerThanTheWholeBudget', () => {
    const sections = new PreparedSections(100);
    sections.keep(0, section(101), sections.epoch);
    expect(sections.get(0)).toBeUndefined();
    expect(sections.bytes).toBe(0);
  });
});
