"""The examples in the package's docstrings run as written."""

import doctest

import pytest

import nerva
from nerva import _nerva

DOCUMENTED = [nerva, nerva.blobs, _nerva.Segmenter, _nerva.Segmenter.runs, _nerva.Segmenter.labels, _nerva.Blobs]


@pytest.mark.parametrize("item", DOCUMENTED, ids=lambda item: getattr(item, "__qualname__", item.__name__))
def test_examples_run(item):
    finder = doctest.DocTestFinder(recurse=False)
    runner = doctest.DocTestRunner(optionflags=doctest.NORMALIZE_WHITESPACE)
    tests = finder.find(item, getattr(item, "__qualname__", item.__name__), globs={})
    assert sum(len(t.examples) for t in tests) > 0
    for test in tests:
        runner.run(test)
    assert runner.summarize(verbose=False).failed == 0
