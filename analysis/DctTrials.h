// DctTrials.h - the trials of all quantisers on one block, for files that are built for one instruction set. Form is that
// file's way to hold a block:
//   Coefficients  what Transform makes of samples or residuals
//   Quantised     what QuantiseRows makes of these with one quantiser after another, from the finest
//   Samples       64 samples in the order in which ShowSome leaves what a decoder shows, modulo 256
//
// A coefficient that a quantiser makes 0 stays 0 with all coarser ones, since factors fall. So once the last four rows are 0
// (Quantised.halfRows), they are left alone, and once the last four columns are (halfColumns), they aren't shown.
#pragma once

#include "analysis/DctKernels.h"
#include "format/QuantiserTables.h"

namespace vorn {
namespace {

template <class Form>
static inline void Quantise(typename Form::Quantised* out, const typename Form::Coefficients* coefficients,
                            const uint32_t* factors, bool inter) {
    if (out->halfRows)
        Form::template QuantiseRows<true>(out, coefficients, factors, inter);
    else
        Form::template QuantiseRows<false>(out, coefficients, factors, inter);
}

template <class Form>
static inline typename Form::Samples Show(const typename Form::Quantised* quantised,
                                          const typename Form::Coefficients* coefficients, const uint32_t* factors) {
    if (!quantised->halfRows) return Form::template ShowSome<false, false>(quantised, coefficients, factors);
    if (!quantised->halfColumns) return Form::template ShowSome<true, false>(quantised, coefficients, factors);
    return Form::template ShowSome<true, true>(quantised, coefficients, factors);
}

template <class Form> static inline int TryIntra(DctTrial* trials, const uint8_t* block, const uint8_t* high) {
    typename Form::Coefficients coefficients;
    Form::Transform(&coefficients, block);
    typename Form::Samples samples[4];
    const int sampleSets = high == nullptr ? 1 : 4;
    if (high == nullptr)
        samples[0] = Form::Take(block);
    else
        for (int i = 0; i < 4; i++) samples[i] = Form::TakeHigh(high, i / 2, i % 2);
    int count = 0;
    typename Form::Quantised quantised = {};
    for (; count < QUANTISERS; count++) {
        Quantise<Form>(&quantised, &coefficients, INTRA_QUANTISERS.quantise[count], false);
        if (!quantised.hasAc) break;
        const typename Form::Samples shown = Show<Form>(&quantised, &coefficients, INTRA_QUANTISERS.dequantise[count]);
        auto error = Form::Sad(shown, samples[0]);
        for (int i = 1; i < sampleSets; i++) error = Form::AddSums(error, Form::Sad(shown, samples[i]));
        trials[count] = {quantised.acBits, Form::Total(error)};
    }
    return count;
}

template <class Form>
static inline int TryInter(DctTrial* trials, const uint8_t* src, const int8_t* residual, const uint8_t* moved) {
    typename Form::Coefficients coefficients;
    Form::Transform(&coefficients, residual);
    const typename Form::Samples samples = Form::Take(src);
    const typename Form::Samples base = Form::Take(moved);
    int count = 0;
    bool hasAc = true;
    typename Form::Quantised quantised = {};
    while (hasAc && count < QUANTISERS) {
        Quantise<Form>(&quantised, &coefficients, INTER_QUANTISERS.quantise[count], true);
        hasAc = quantised.hasAc;
        const typename Form::Samples shown = Show<Form>(&quantised, &coefficients, INTER_QUANTISERS.dequantise[count]);
        trials[count++] = {quantised.acBits, Form::Total(Form::Sad(Form::AddSamples(shown, base), samples))};
    }
    return count;
}

} // namespace
} // namespace vorn
