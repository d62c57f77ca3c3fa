<?xml version="1.0" encoding="UTF-8"?>
<!-- What Zebra indexes of a MARC 21 record in bench/side-by-side: every
     field as words, positional, in four registers. The benchmark's free-word
     queries go to "any", a title word to "title".
       title    245 (title, remainder, responsibility)
       author   100, 110, 111, 700, 710, 711
       subject  600, 610, 611, 630, 650, 651
       any      every data field from 100 to 799: headings, titles, edition,
                publication, description, series, notes, subjects, added
                entries (not the 0XX codes nor the 852 holdings)
     One z:index per field, so that a phrase is found where its words stand
     side by side in one field. -->
<xsl:stylesheet version="1.0"
    xmlns:xsl="http://www.w3.org/1999/XSL/Transform"
    xmlns:m="http://www.loc.gov/MARC21/slim"
    xmlns:z="http://indexdata.com/zebra-2.0">
  <xsl:output method="xml" encoding="UTF-8" indent="no"/>

  <xsl:template match="/">
    <z:record>
      <xsl:apply-templates select="m:record/m:datafield"/>
    </z:record>
  </xsl:template>

  <xsl:template match="m:datafield">
    <xsl:variable name="tag" select="number(@tag)"/>
    <xsl:variable name="registros">
      <xsl:if test="$tag &gt;= 100 and $tag &lt;= 799">any:w</xsl:if>
      <xsl:if test="$tag = 245"> title:w</xsl:if>
      <xsl:if test="$tag = 100 or $tag = 110 or $tag = 111 or
                    $tag = 700 or $tag = 710 or $tag = 711"> author:w</xsl:if>
      <xsl:if test="$tag = 600 or $tag = 610 or $tag = 611 or
                    $tag = 630 or $tag = 650 or $tag = 651"> subject:w</xsl:if>
    </xsl:variable>
    <xsl:if test="string($registros) != ''">
      <z:index name="{normalize-space($registros)}">
        <xsl:for-each select="m:subfield">
          <xsl:if test="position() &gt; 1"><xsl:text> </xsl:text></xsl:if>
          <xsl:value-of select="."/>
        </xsl:for-each>
      </z:index>
    </xsl:if>
  </xsl:template>
</xsl:stylesheet>
