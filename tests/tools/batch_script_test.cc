// The "Save Batch..." line: its exact word order, reading it back, the
// sequence form, and refusing bad words with a message naming them.
#include "tools/batch_script.h"

#include <gtest/gtest.h>

namespace {

tools::BatchScript dialogJob(const Settings& settings) {
  tools::BatchScript s;
  tools::ScriptLoadValuesFrom(settings, &s);
  s.outFormat = "gif";
  s.deleteOriginals = true;
  s.outDir = "/tmp/out";
  s.steps.push_back({process::findAdvancedOp("-binary"), {1}});
  s.steps.push_back({process::findAdvancedOp("-resize"), {320, 200, 1, 1}});
  s.steps.push_back({process::findAdvancedOp("-edgedetect heavy"), {}});
  s.inputs = {"/pics/a.jpg", "b.png"};
  return s;
}

TEST(BatchScriptLine, WordsInTheDialogsOrderEachFollowedByABlank) {
  Settings settings;
  settings.loadPcdBase = 3;
  settings.loadGrobBpp = 0;
  settings.loadWidth = 640, settings.loadHeight = 480, settings.loadOffset = 16;
  settings.loadChannelType = 1;  // rgb
  settings.loadChannelOrder = 0;
  EXPECT_EQ(tools::BatchScriptLine(dialogJob(settings)),
            "pixbatch -npcd 3 -size 640x480+16 -ctype rgb -corder inter -out gif -D -o /tmp/out "
            "-binary floyd -resize 320 200 -ratio -rtype linear -edgedetect heavy /pics/a.jpg "
            "b.png \n");
  // GrobBpp goes out plus one under a second -npcd; a zero Photo CD step and
  // an empty output directory are left out.
  settings.loadGrobBpp = 7;
  settings.loadChannelType = 6;
  settings.loadChannelOrder = 2;
  tools::BatchScript s = dialogJob(settings);
  s.outDir.clear();
  s.deleteOriginals = false;
  EXPECT_EQ(tools::BatchScriptLine(s).substr(0, 70),
            "pixbatch -npcd 3 -npcd 8 -size 640x480+16 -ctype cmyk -corder sep -out");
  settings.loadPcdBase = 0;
  settings.loadGrobBpp = 0;
  EXPECT_EQ(tools::BatchScriptLine(dialogJob(settings)).substr(0, 24), "pixbatch -size 640x480+1");
}

TEST(BatchScriptLine, ReadsBackToTheSameJob) {
  Settings settings;
  settings.loadPcdBase = 2;
  settings.loadGrobBpp = 4;
  settings.loadChannelType = 3;
  const tools::BatchScript written = dialogJob(settings);
  const std::string line = tools::BatchScriptLine(written);
  tools::BatchScript read;
  std::string error;
  ASSERT_TRUE(tools::ParseBatchScript(tools::SplitScriptWords(line), &read, &error)) << error;
  EXPECT_EQ(tools::BatchScriptLine(read), line);
  EXPECT_EQ(read.inputs, written.inputs);
  ASSERT_EQ(read.steps.size(), 3u);
  EXPECT_EQ(read.steps[0].op, process::findAdvancedOp("-binary"));
  // The load values a batch reads with: GrobBpp is the setting again.
  const tools::BatchLoadSettings load = tools::ScriptLoadSettings(read, {});
  EXPECT_EQ(load.pcdBase, 2);
  EXPECT_EQ(load.grobBpp, 4);
  EXPECT_EQ(load.channelType, 3);
  // Tabs, several blanks and a line end are all separators.
  ASSERT_TRUE(tools::ParseBatchScript(tools::SplitScriptWords("pixbatch\t-out  png  x.gif \r\n"),
                                      &read, &error));
  EXPECT_EQ(read.outFormat, "png");
  EXPECT_EQ(read.inputs, std::vector<std::string>{"x.gif"});
}

TEST(BatchScriptLine, SequenceFormNamesEveryNumberUpToTheEnd) {
  tools::BatchScript s;
  s.sequence = true;
  s.inFormat = "tiff";
  s.outFormat = "png";
  s.start = 8, s.end = 12, s.step = 2;
  s.outTemplate = "out##.png";
  s.inputs = {"/scans/img###.tif"};
  const std::string line = tools::BatchScriptLine(s);
  EXPECT_EQ(line, "pixbatch -out png -in tiff -n 8 12 2 -outname out##.png /scans/img###.tif \n");
  tools::BatchScript read;
  std::string error;
  ASSERT_TRUE(tools::ParseBatchScript(tools::SplitScriptWords(line), &read, &error)) << error;
  const auto paths = tools::SequencePaths(read);
  ASSERT_EQ(paths.size(), 3u);
  EXPECT_EQ(paths[0].first, "/scans/img008.tif");
  EXPECT_EQ(paths[0].second, "/scans/out08.png");
  EXPECT_EQ(paths[2].first, "/scans/img012.tif");
  read.outDir = "/o";
  read.step = -1, read.start = 3, read.end = 1;
  const auto down = tools::SequencePaths(read);
  ASSERT_EQ(down.size(), 3u);
  EXPECT_EQ(down[2].second, "/o/out01.png");
}

TEST(ParseBatchScript, BadWordsAreNamedAndNothingIsAccepted) {
  const std::pair<const char*, const char*> cases[] = {
      {"-frobnicate a.gif", "-frobnicate"},
      {"-out", "-out"},
      {"-q 0 a.gif", "-q"},
      {"-q 101 a.gif", "-q"},
      {"-j 0 a.gif", "-j"},
      {"-j 65 a.gif", "-j"},
      {"-ctype rgbx a.gif", "rgbx"},
      {"-corder inter2 a.gif", "inter2"},
      {"-size 10x10 a.gif", "-size"},
      {"-size 10x-1+0 a.gif", "-size"},
      {"-npcd x a.gif", "-npcd"},
      {"-npcd 1 -npcd 2 -npcd 3 a.gif", "-npcd"},
      {"-n 1 5 0 t#.gif", "-n"},
      {"-n 5 1 1 -outname o#.png t#.gif", "-n"},
      {"-n 1 5", "-n"},
      {"-n 1 5 1 t#.gif", "The output filename is missing !!"},
      {"-n 1 5 1 -outname o#.png", "The input filename is missing !!"},
      {"-n 1 5 1 -outname o#.png a#.gif b#.gif", "-n"},
      {"-outname o#.png a.gif", "-outname"},
      {"-brightness 300 a.gif", "-brightness"},
      {"-binary diffuse a.gif", "-binary"},
      {"-resize 50% a.gif", "-resize"},
      {"-noise strange 3 a.gif", "-noise"},
  };
  for (const auto& [text, named] : cases) {
    tools::BatchScript s;
    s.jobs = 99;
    std::string error;
    EXPECT_FALSE(tools::ParseBatchScript(tools::SplitScriptWords(text), &s, &error)) << text;
    EXPECT_NE(error.find(named), std::string::npos) << text << " -> " << error;
    EXPECT_EQ(s.jobs, 99) << "the job is left alone";
  }
}

TEST(ParseBatchScript, OwnOptionsAndTheFirstInputEndsTheOptions) {
  tools::BatchScript s;
  std::string error;
  ASSERT_TRUE(tools::ParseBatchScript(
      tools::SplitScriptWords("-j 2 -q 80 -ini /x/rc -negate -help a.gif -weird - b.gif"), &s,
      &error))
      << error;
  EXPECT_EQ(s.jobs, 2);
  EXPECT_EQ(s.jpegQuality, 80);
  EXPECT_EQ(s.iniFile, "/x/rc");
  EXPECT_TRUE(s.help);
  ASSERT_EQ(s.steps.size(), 1u);
  EXPECT_EQ(s.inputs, (std::vector<std::string>{"a.gif", "-weird", "-", "b.gif"}));
  EXPECT_NE(tools::BatchHelpText().find("-swirl <Degrees>"), std::string::npos);
}

}  // namespace
