import { describe, expect, it } from 'vitest';
import { CfiSyntaxError, escapeCfiText, parseCfi, writeCfi } from '../../src/cfi/CfiSyntax';

describe('CfiSyntax', () => {
  it('ParsesStepsIndirectionAndACharacterOffset', () => {
    const parsed = parseCfi('epubcfi(/6/4[chap01ref]!/4[body01]/10[para05]/3:10)');
    expect(parsed.path.segments).toEqual([
      [{ index: 6 }, { index: 4, id: 'chap01ref' }],
      [{ index: 4, id: 'body01' }, { index: 10, id: 'para05' }, { index: 3 }],
    ]);
    expect(parsed.path.offset).toEqual({ character: 10 });
    expect(parsed.range).toBeUndefined();
  });

  it('ParsesATextAssertionWithEscapesAndSideBias', () => {
    const parsed = parseCfi('epubcfi(/6/2!/4/1:3[a^,b^[c^],d^^e;s=b])');
    expect(parsed.path.offset).toEqual({ character: 3, assertion: { before: 'a,b[c]', after: 'd^e', sideBias: 'before' } });
  });

  it('ParsesAnAssertionWithOnlyTextAfter', () => {
    expect(parseCfi('epubcfi(/6/2!/4/1:0[,Once])').path.offset?.assertion).toEqual({ after: 'Once' });
  });

  it('ParsesARange', () => {
    const parsed = parseCfi('epubcfi(/6/4[chap01ref]!/4[body01]/10[para05],/2/1:1,/3:4)');
    expect(parsed.path.segments[1]).toEqual([{ index: 4, id: 'body01' }, { index: 10, id: 'para05' }]);
    expect(parsed.range?.start).toEqual({ segments: [[{ index: 2 }, { index: 1 }]], offset: { character: 1 } });
    expect(parsed.range?.end).toEqual({ segments: [[{ index: 3 }]], offset: { character: 4 } });
  });

  it('ParsesTemporalAndSpatialOffsets', () => {
    expect(parseCfi('epubcfi(/6/4!/4/6~23.5@50:25.5)').path.offset).toEqual({ temporal: 23.5, spatial: { x: 50, y: 25.5 } });
  });

  it('WritesBackWhatItRead', () => {
    for (const text of [
      'epubcfi(/6/4[chap01ref]!/4[body01]/10[para05]/3:10)',
      'epubcfi(/6/4!/4/2/1:0[,Once])',
      'epubcfi(/6/2!/4/1:3[a^,b^[c^],d^^e;s=b])',
      'epubcfi(/6/4[chap01ref]!/4[body01]/10[para05],/2/1:1,/3:4)',
      'epubcfi(/6/14[x^(1^)]!/4/2[id^;1])',
      'epubcfi(/6/4!/4/6~23.5@50:25.5)',
    ]) {
      expect(writeCfi(parseCfi(text))).toBe(text);
    }
  });

  it('EscapesEverySpecialCharacter', () => {
    expect(escapeCfiText('^[](),;=x')).toBe('^^^[^]^(^)^,^;^=x');
  });

  it('RefusesMalformedText', () => {
    for (const text of [
      '/6/4!/4',
      'epubcfi(/6/4!/4',
      'epubcfi(6/4)',
      'epubcfi(/6/04)',
      'epubcfi(/6/4!)',
      'epubcfi(/6/4[unterminated)',
      'epubcfi(/6/4:1,/2,/4)',
      'epubcfi(/6/4!/4/1:3[a,b)c])',
      'epubcfi(/6/4) trailing',
      'epubcfi(/6/4!/4/1:3[x^',
    ]) {
      expect(() => parseCfi(text), text).toThrow(CfiSyntaxError);
    }
  });
});
