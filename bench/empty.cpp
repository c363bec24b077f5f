// The program that does nothing: what starting any program costs.
// SPDX-License-Identifier: GPL-3.0-or-later
int main() {}
