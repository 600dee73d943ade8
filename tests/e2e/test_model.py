"""The model of the rates against the processor's own extended precision, through a C program."""
import random
import shutil
import struct
import subprocess

import pytest

from harness import files, model

PROGRAM = r"""
#include <stdint.h>
#include <stdio.h>
/* old and new as doubles and the interval, in; the rate as a double, out. */
int main(void) {
  double old, new_; uint32_t seconds; double out[2];
  while (fread(&old, 8, 1, stdin) == 1 && fread(&new_, 8, 1, stdin) == 1 && fread(&seconds, 4, 1, stdin) == 1) {
    long double d = seconds ? (long double)seconds : 1.0L, l = new_, p = old, two64 = 18446744073709551616.0L;
    out[0] = l >= p ? (double)((l - p) / d) : p > 9223372036854775808.0L ? (double)((l + two64 - p) / d) : new_;
    out[1] = (double)(l / d);
    fwrite(out, 8, 2, stdout);
  }
}
"""


def test_model_agrees_with_extended_precision_arithmetic(tmp_path):
    compiler = shutil.which("gcc") or shutil.which("cc")
    if compiler is None:
        pytest.skip("no C compiler to judge the model with")
    source = tmp_path / "judge.c"
    source.write_text(PROGRAM)
    subprocess.run([compiler, "-O1", "-std=c11", source, "-o", tmp_path / "judge"], check=True)

    pick = random.Random(9911)
    edges = [0, 1, 3, 2**53 - 1, 2**53 + 1, 2**63 - 1024, 2**63, 2**63 + 4096, 2**64 - 4096, 2**64 - 1]
    values = lambda: float(pick.choice(edges + [pick.getrandbits(pick.randint(1, 64))]))
    seconds = lambda: pick.choice([0, 1, 3, 7, 10, 60, 3600, 2**32 - 1, pick.getrandbits(32)])
    cases = [(values(), values(), seconds()) for _ in range(10000)]
    judged = subprocess.run([tmp_path / "judge"], check=True, stdout=subprocess.PIPE,
                            input=b"".join(struct.pack("<ddI", *case) for case in cases)).stdout
    for case, (change, of_new) in zip(cases, struct.iter_unpack("<dd", judged), strict=True):
        old, new, interval = case
        assert model.rate(old, new, interval) == change, case
        assert model.rate_of_new(new, interval) == of_new, case


def test_model_knows_the_documented_cases():
    assert model.rate(10.0, 4.0, 10) == 4.0
    assert model.rate(float(2**64 - 4096), 100.0, 10) == 419.6
    assert model.record(files.PDIST, (132, 7, 2**64 - 1, 0)) == (b"\x84\0\0\0\7\0\0\0", (2.0**64, 0.0))
