"""The kinds of proof of scripts/campaign, a module each.

A module has a docstring whose first line says what is proved, `GOAL` (how many cases a release shows) and
`run(share, case)`, which yields (case, count, fault): the name that repeats it, how many cases it stands for,
and what went wrong or None. `share` asks for the part that CI has time for, `case` for one by its name.
"""
