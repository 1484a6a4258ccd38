// Progress through the book, weighted by the length of each section. Lengths become known one by
// one as sections are read in the background; until then a section counts as the mean of those
// already known, so the book's progression never waits for every section to be laid out.

export class SectionWeights {
  private readonly lengths: (number | undefined)[];

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
  }

  weight(index: number): number {
    const length = this.lengths[index];
    if (length !== undefined) return length;
    const known = this.lengths.filter((value): value is number => value !== undefined);
    if (known.length === 0) return 1;
    return known.reduce((sum, value) => sum + value, 0) / known.length;
  }

  private total(): number {
    let sum = 0;
    for (let index = 0; index < this.lengths.length; index += 1) sum += this.weight(index);
    return sum;
  }

  totalProgression(spineIndex: number, sectionProgression: number): number {
    if (this.lengths.length === 0) return 0;
    const index = Math.max(0, Math.min(spineIndex, this.lengths.length - 1));
    let before = 0;
    for (let current = 0; current < index; current += 1) before += this.weight(current);
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
