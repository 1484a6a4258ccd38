// Progress through the book, weighted by the length of each section. Lengths become known one by
// one as sections are read in the background; until then a section counts as the mean of those
// already known, so the book's progression never waits for every section to be laid out.

export class SectionWeights {
  private readonly lengths: (number | undefined)[];
  // Derived from `lengths` and dropped by setLength: a search asks for thousands of progressions
  // in a row, often while the lengths are still being read.
  private meanOfKnown: number | undefined;
  // before[i] is the weight of sections 0..i-1; before[count] is the whole book's.
  private before: Float64Array | undefined;

  constructor(sectionCount: number) {
    this.lengths = new Array<number | undefined>(sectionCount).fill(undefined);
  }

  get count(): number {
    return this.lengths.length;
  }

  get known(): number {
    return this.lengths.filter((length) => length !== undefined).length;
  }

  // A length of zero still counts a little, so an empty section takes a place in the order.
  setLength(index: number, length: number): void {
    if (index < 0 || index >= this.lengths.length || !Number.isFinite(length)) return;
    this.lengths[index] = Math.max(1, length);
    this.meanOfKnown = undefined;
    this.before = undefined;
  }

  weight(index: number): number {
    const length = this.lengths[index];
    if (length !== undefined) return length;
    if (this.meanOfKnown === undefined) {
      const known = this.lengths.filter((value): value is number => value !== undefined);
      this.meanOfKnown = known.length === 0 ? 1 : known.reduce((sum, value) => sum + value, 0) / known.length;
    }
    return this.meanOfKnown;
  }

  private weightsBefore(): Float64Array {
    if (this.before === undefined) {
      const before = new Float64Array(this.lengths.length + 1);
      for (let index = 0; index < this.lengths.length; index += 1) before[index + 1] = (before[index] as number) + this.weight(index);
      this.before = before;
    }
    return this.before;
  }

  private total(): number {
    return this.weightsBefore()[this.lengths.length] as number;
  }

  totalProgression(spineIndex: number, sectionProgression: number): number {
    if (this.lengths.length === 0) return 0;
    const index = Math.max(0, Math.min(spineIndex, this.lengths.length - 1));
    const before = this.weightsBefore()[index] as number;
    const within = Math.max(0, Math.min(1, sectionProgression)) * this.weight(index);
    return clampUnit((before + within) / this.total());
  }

  // The section and the progression within it of a book-wide progression.
  locate(totalProgression: number): { spineIndex: number; sectionProgression: number } {
    if (this.lengths.length === 0) return { spineIndex: 0, sectionProgression: 0 };
    const target = clampUnit(totalProgression) * this.total();
    let before = 0;
    for (let index = 0; index < this.lengths.length; index += 1) {
      const weight = this.weight(index);
      if (target < before + weight || index === this.lengths.length - 1) {
        return { spineIndex: index, sectionProgression: clampUnit((target - before) / weight) };
      }
      before += weight;
    }
    return { spineIndex: this.lengths.length - 1, sectionProgression: 1 };
  }
}

export function clampUnit(value: number): number {
  if (!Number.isFinite(value)) return 0;
  return Math.max(0, Math.min(1, value));
}
