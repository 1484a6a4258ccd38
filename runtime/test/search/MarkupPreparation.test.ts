import { describe, expect, it } from 'vitest';
import { TextIndex } from '../../src/cfi/TextIndex';
import { parseSectionDocument, textRoot } from '../../src/publication/SectionDocuments';
import { prepareSectionFromMarkup } from '../../src/search/MarkupPreparation';
import { cfiForSpan, prepareSection } from '../../src/search/PreparedSection';
import { TextFolder } from '../../src/text/TextFolding';
import { xhtmlText } from '../support/sections';

const spine = { spineCfiStep: 6, itemCfiStep: 4, idref: 'chapter' };
const xhtmlType = 'application/xhtml+xml';
const folder = new TextFolder('en');

const declaration = '<?xml version="1.0" encoding="UTF-8"?>';
const xhtmlRoot = '<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops">';

// Sections whose markup preparation must match, field for field and CFI for CFI, the preparation
// from the document the runtime parses (whose CFIs the PreparedSection tests hold to cfiForRange).
const sameAsTheDocument: { name: string; markup: string }[] = [
  {
    name: 'InlineMarkupIdsAndComments',
    markup: xhtmlText(
      '<h1 id="top">Call <em>me</em> Ish<b>ma</b>el.</h1><!-- a note --><div><p id="p1">Some <span><i>years</i> ago</span>' +
        '<!-- x --> never</p><p>mind <sup>how</sup> long</p></div><p>pre<br/>cisely</p>',
    ),
  },
  {
    name: 'EntitiesCharacterReferencesAndCData',
    markup: xhtmlText('<p>Tom &amp; Jerry &#233;t&#xE9; &lt;b&gt;</p><p>raw <![CDATA[<not> markup]]> end</p>'),
  },
  {
    name: 'WhiteSpaceBetweenBlocksAndEmptyElements',
    markup: xhtmlText('\n  <div>\n    <p>one</p>\n    <p></p><hr/>\n    <p>two <span/>three</p>\n  </div>\n'),
  },
  {
    name: 'RuntimeAttributeInTheBook',
    markup: xhtmlText('<p>one <span data-tomekeeper-runtime="">hidden <b>text</b></span> two</p><p>three</p>'),
  },
  {
    name: 'HeadChildrenBodyIdDoctypeAndInstruction',
    markup:
      `${declaration}<!DOCTYPE html>${xhtmlRoot}<head><title>t</title><meta charset="utf-8"/><link rel="stylesheet" href="s.css"/></head>` +
      '<body id="start" epub:type="bodymatter"><?page 12?><section id="s1"><h2>Title</h2><p>Body <a href="#x">text</a>.</p></section></body></html>',
  },
  {
    name: 'ForeignElementsAndLanguageTags',
    markup: xhtmlText(
      '<p xml:lang="fr">Voil\u00e0 <svg xmlns="http://www.w3.org/2000/svg"><text>drawn words</text></svg> after</p><DIV>odd case</DIV>',
    ),
  },
];

// Sources that the document parser may read another way, or that have no body as their text root.
const needsTheDocument: { name: string; markup: string; mediaType?: string }[] = [
  { name: 'HtmlMediaType', markup: xhtmlText('<p>text</p>'), mediaType: 'text/html' },
  { name: 'NotWellFormed', markup: xhtmlText('<p>open<br></p>') },
  {
    name: 'EntityOfTheXhtmlDoctype',
    markup: `${declaration}<!DOCTYPE html PUBLIC "-//W3C//DTD XHTML 1.1//EN" "http://www.w3.org/TR/xhtml11/DTD/xhtml11.dtd">${xhtmlRoot}<head><title>t</title></head><body><p>a&nbsp;b</p></body></html>`,
  },
  {
    name: 'DoctypeWithDeclarations',
    markup: `${declaration}<!DOCTYPE html [<!ATTLIST p id CDATA "given">]>${xhtmlRoot}<head><title>t</title></head><body><p>a</p></body></html>`,
  },
  { name: 'ParserErrorElement', markup: xhtmlText('<p>a</p><parsererror>b</parsererror>') },
  { name: 'RootOutsideXhtml', markup: `${declaration}<html><head><title>t</title></head><body><p>a</p></body></html>` },
  { name: 'NoBody', markup: `${declaration}${xhtmlRoot}<head><title>t</title></head><div><p>a</p></div></html>` },
];

describe('prepareSectionFromMarkup', () => {
  for (const { name, markup } of sameAsTheDocument) {
    it(`PreparesAsTheDocumentDoes${name}`, () => {
      const prepared = prepareSectionFromMarkup(markup, xhtmlType, folder, 'en');
      expect(prepared).toBeDefined();
      const section = prepared as NonNullable<typeof prepared>;
      const document = parseSectionDocument(markup, xhtmlType);
      const root = textRoot(document);
      const index = new TextIndex(root);
      const fromDocument = prepareSection(index, root, folder, 'en');
      expect(section.text).toBe(fromDocument.text);
      expect(section.boundaries).toEqual(fromDocument.boundaries);
      expect(section.folded.text).toBe(fromDocument.folded.text);
      expect(section.bytes).toBe(fromDocument.bytes);
      for (let start = 0; start < index.text.length; start += 1) {
        for (let end = start + 1; end <= Math.min(index.text.length, start + 12); end += 1) {
          expect(cfiForSpan(section, start, end, spine), `[${start}, ${end})`).toBe(cfiForSpan(fromDocument, start, end, spine));
        }
      }
    });
  }

  for (const { name, markup, mediaType } of needsTheDocument) {
    it(`LeavesToTheDocument${name}`, () => {
      expect(prepareSectionFromMarkup(markup, mediaType ?? xhtmlType, folder, 'en')).toBeUndefined();
    });
  }
});
